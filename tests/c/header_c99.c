/* tavrel.h as C99 with -pedantic, its types and calls as a C99 game uses them. */
#include <tavrel_sdk/tavrel.h>

int tavrel_header_c99_uses(void) {
  tavrel_finger finger = {1, 10.0, 20.0};
  return tavrel_validate(NULL, &finger) == TAVREL_OK;
}
