/* tavrel.h as C99 with -pedantic: its types and calls used as a C99 game would. */
#include <tavrel_sdk/tavrel.h>

static void on_done(bool ok, void *user_data) { *(bool *)user_data = ok; }

int tavrel_header_c99_uses(void) {
  static bool done;
  tavrel_finger finger = {1, 10.0, 20.0};
  tavrel_frame frame = {0};
  (void)frame;
  return tavrel_validate(on_done, &done) == TAVREL_OK && finger.id == 1;
}
