/* A game in C11 through tavrel.h alone, headless, against tavrel serve, on the real clock. */
#define _XOPEN_SOURCE 700

#include <tavrel_sdk/tavrel.h>

#include <math.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define REFUSED_TOKEN "TOKENPREFIX-0123456789ab" "REFUSED-0123456789abcdef"
#define VALID_TOKEN "TOKENPREFIX-0123456789ab" "ACCEPTED-0123456789abcde"

static int failures;

#define CHECK(condition) check((condition), #condition, __LINE__)

static void check(bool ok, const char *what, int line) {
  if (!ok) {
    fprintf(stderr, "c_interface_test.c:%d: failed: %s\n", line, what);
    ++failures;
  }
}

/* The last log line, as the game's callback saw it. */
static pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
static char last_line[1024];

static void on_log(const char *line, void *user_data) {
  (void)user_data;
  pthread_mutex_lock(&log_mutex);
  snprintf(last_line, sizeof last_line, "%s", line);
  pthread_mutex_unlock(&log_mutex);
}

static bool logged(const char *line) {
  pthread_mutex_lock(&log_mutex);
  const bool starts = strncmp(last_line, line, strlen(line)) == 0;
  pthread_mutex_unlock(&log_mutex);
  return starts;
}

/* The status, and a last log line that starts with `line`. */
#define EXPECT_REFUSAL(call, expected, line) CHECK((call) == (expected) && logged(line))

/* The mock service, started before the library makes any thread; it ends with this process. */
static pid_t service = -1;
static char base_url[1024];
static char ca_file[1024];

static bool start_service(const char *tool, const char *uploads) {
  int out[2];
  if (pipe(out) != 0 || (service = fork()) < 0) return false;
  if (service == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(out[1], STDOUT_FILENO);
    close(out[0]); /* else the service's lines would fill a pipe no one reads */
    close(out[1]);
    execl(tool, tool, "serve", "--refuse-token", REFUSED_TOKEN, "--token", VALID_TOKEN, "--user", "ann:secret",
          "--uploads", uploads, "--scheme", "cgame", (char *)NULL);
    _exit(127);
  }
  close(out[1]);
  FILE *lines = fdopen(out[0], "r");
  char line[1024];
  while (lines && fgets(line, sizeof line, lines) && strncmp(line, "launch-url: ", 12) != 0) {
    line[strcspn(line, "\n")] = '\0';
    if (strncmp(line, "base-url: ", 10) == 0) snprintf(base_url, sizeof base_url, "%s", line + 10);
    if (strncmp(line, "ca-file: ", 9) == 0) snprintf(ca_file, sizeof ca_file, "%s", line + 9);
  }
  if (lines) fclose(lines); /* the service ignores a reader that goes */
  return base_url[0] && ca_file[0];
}

static bool page_visible(void) {
  bool visible = false;
  return tavrel_is_login_page_visible(&visible) == TAVREL_OK && visible;
}

/* The login page at rest: its view's frame starts at the top of the screen, the slide over. */
static bool page_arrived(void) {
  char *tree = NULL;
  double x = -1, y = -1;
  if (tavrel_dump_view_tree(&tree) == TAVREL_OK) {
    const char *page = strstr(tree, "\"LoginViewController\"");
    const char *frame = page ? strstr(page, "\"frame\": [") : NULL;
    if (frame) sscanf(frame + 10, " %lf , %lf", &x, &y);
  }
  tavrel_free(tree);
  return x == 0 && y == 0;
}

#define RUN_UNTIL(condition) \
  for (const time_t deadline_ = time(NULL) + 10; !(condition) && time(NULL) < deadline_;) \
  tavrel_run_main_loop_for(0.02)

static pthread_t main_thread;
static atomic_int validated_calls;
static atomic_bool validated_on_main_thread;

static void on_validated(bool ok, void *user_data) {
  CHECK(ok && user_data == &validated_calls);
  atomic_store(&validated_on_main_thread, pthread_equal(pthread_self(), main_thread) != 0);
  atomic_fetch_add(&validated_calls, 1);
}

static size_t last_damage_count;

static void on_frame(const tavrel_frame *frame, void *user_data) { *(size_t *)user_data = frame->damage_count; }

/* A main-thread call made on another thread: its status, and the line that thread reads back. */
static tavrel_status off_main_status;
static char off_main_line[128];

static void *off_main_thread(void *unused) {
  bool visible;
  off_main_status = tavrel_is_login_page_visible(&visible);
  tavrel_last_error(off_main_line, sizeof off_main_line);
  return unused;
}

static void call_off_main_thread(void) {
  pthread_t thread;
  pthread_create(&thread, NULL, off_main_thread, NULL);
  pthread_join(thread, NULL);
}

/* Each refusal before any screen exists: the status and its one log line. */
static void refusals_before_the_screen(void) {
  EXPECT_REFUSAL(tavrel_process_url_request(NULL), TAVREL_ERROR_NULL_ARGUMENT, "tavrel_process_url_request: url is");
  EXPECT_REFUSAL(tavrel_emit_game_event("jump", "\xC3\x28"), TAVREL_ERROR_INVALID_UTF8, "tavrel_emit_game_event: name");
  EXPECT_REFUSAL(tavrel_run_main_loop_for(-1.0), TAVREL_ERROR_OUT_OF_RANGE, "tavrel_run_main_loop_for: seconds must");
  EXPECT_REFUSAL(tavrel_set_info_dictionary_json("[1]"), TAVREL_ERROR_INVALID_ARGUMENT,
                 "tavrel_set_info_dictionary_json: json is not a JSON object");
  EXPECT_REFUSAL(tavrel_show_touches(), TAVREL_ERROR_NOT_READY, "tavrel_show_touches: no overlay yet");
  const int32_t miscounted[] = {3, 0, 7}, framed[] = {2, -1, 7}, alone[] = {0};
  EXPECT_REFUSAL(tavrel_emit_input_event(miscounted, 3), TAVREL_ERROR_INVALID_ARGUMENT,
                 "tavrel_emit_input_event: words[0] must be count - 1");
  EXPECT_REFUSAL(tavrel_emit_input_event(miscounted, 0), TAVREL_ERROR_OUT_OF_RANGE,
                 "tavrel_emit_input_event: count must be at least 1");
  CHECK(tavrel_emit_input_event(framed, 3) == TAVREL_OK && tavrel_emit_input_event(alone, 1) == TAVREL_OK);

  call_off_main_thread();
  EXPECT_REFUSAL(off_main_status, TAVREL_ERROR_WRONG_THREAD, "tavrel_is_login_page_visible: main thread only");
  CHECK(strcmp(tavrel_status_text((tavrel_status)42), "unknown status") == 0);
}

/* A buffer kept from frame to frame, given each frame's damage, holds the latest frame. */
static void fingers_on_the_game(tavrel_host *host) {
  const tavrel_finger down[] = {{1, 100.0, 300.0}, {2, 200.0, 500.0}};
  const tavrel_finger moved[] = {{1, 110.0, 320.0}, {2, 190.0, 480.0}};
  bool taken = true;
  CHECK(tavrel_host_fingers_down(host, down, 2, &taken) == TAVREL_OK && !taken);

  tavrel_frame frame;
  CHECK(tavrel_host_render_frame(host, &frame) == TAVREL_OK);
  CHECK(frame.width == 390 && frame.height == 844 && frame.stride >= 390 * 4 && frame.pixels);
  enum { row = 390 * 4 };
  static unsigned char kept[row * 844], rgba[row * 844];
  memset(kept, 0xAB, sizeof kept); /* a whole copy leaves none of it */
  CHECK(tavrel_frame_copy_pixels(&frame, TAVREL_PIXELS_BGRA_PREMULTIPLIED, true, kept, row) == TAVREL_OK);
  CHECK(tavrel_frame_copy_pixels(&frame, TAVREL_PIXELS_RGBA_STRAIGHT, true, rgba, row - 4) ==
        TAVREL_ERROR_OUT_OF_RANGE);
  CHECK(tavrel_frame_copy_pixels(&frame, (tavrel_pixel_format)3, true, rgba, row) == TAVREL_ERROR_OUT_OF_RANGE);
  const tavrel_frame no_damage = {frame.pixels, 390, 844, frame.stride, 1.0, NULL, 1};
  EXPECT_REFUSAL(tavrel_frame_copy_pixels(&no_damage, TAVREL_PIXELS_RGBA_STRAIGHT, false, rgba, row),
                 TAVREL_ERROR_NULL_ARGUMENT, "tavrel_frame_copy_pixels: frame->damage is NULL");
  CHECK(tavrel_host_render_frame(host, &frame) == TAVREL_OK && frame.damage_count == 0);

  CHECK(tavrel_host_fingers_moved(host, moved, 2, &taken) == TAVREL_OK && !taken);
  CHECK(tavrel_host_render_frame(host, &frame) == TAVREL_OK && frame.damage_count > 0);
  CHECK(last_damage_count == frame.damage_count);
  CHECK(tavrel_frame_copy_pixels(&frame, TAVREL_PIXELS_BGRA_PREMULTIPLIED, false, kept, row) == TAVREL_OK);
  bool same = true;
  for (int y = 0; y < 844; ++y) same = same && memcmp(kept + y * row, (const char *)frame.pixels + y * frame.stride, row) == 0;
  CHECK(same);
  /* The mark under finger 1, white at 2/3 over nothing: premultiplied 170, straight 255. */
  const size_t at = 320 * row + 110 * 4;
  CHECK(tavrel_frame_copy_pixels(&frame, TAVREL_PIXELS_RGBA_STRAIGHT, true, rgba, row) == TAVREL_OK);
  CHECK(kept[at] == 170 && rgba[at] == 255 && rgba[at + 1] == 255 && rgba[at + 3] == 170);
  CHECK(tavrel_host_fingers_up(host, moved, 2, &taken) == TAVREL_OK && !taken);
}

/* A refused token, the page, the player's fingers and keys, the login, the completion. */
static void the_gate(tavrel_host *host) {
  main_thread = pthread_self();
  CHECK(tavrel_validate(on_validated, &validated_calls) == TAVREL_OK);
  RUN_UNTIL(page_arrived());
  bool covered = false;
  CHECK(page_arrived() && page_visible() && tavrel_host_is_covered(host, &covered) == TAVREL_OK && covered);
  CHECK(atomic_load(&validated_calls) == 0);

  const tavrel_finger corner = {7, 5.0, 5.0};
  bool taken = false, tapped = false;
  CHECK(tavrel_host_fingers_down(host, &corner, 1, &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_fingers_cancelled(host, &corner, 1, &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_tap_element(host, "Tavrel username", &tapped) == TAVREL_OK && tapped);
  CHECK(tavrel_host_type_text(host, "ann", &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_tap_element(host, "Password", &tapped) == TAVREL_OK && tapped);
  CHECK(tavrel_host_type_text(host, "secrex", &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_press_backspace(host, &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_type_text(host, "t", &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_tap_element(host, "Login", &tapped) == TAVREL_OK && tapped);
  RUN_UNTIL(atomic_load(&validated_calls) > 0 && !page_visible());
  tavrel_run_main_loop_for(0.1);
  CHECK(atomic_load(&validated_calls) == 1 && atomic_load(&validated_on_main_thread));
  CHECK(tavrel_host_is_covered(host, &covered) == TAVREL_OK && !covered);
}

/* A game whose runtime owns its threads: completions and log lines come from its loop. */
static void callbacks_from_the_loop(const char *launch) {
  EXPECT_REFUSAL(tavrel_set_callback_delivery((tavrel_callback_delivery)2), TAVREL_ERROR_OUT_OF_RANGE, "");
  char line[128];
  CHECK(tavrel_last_error(line, sizeof line) > 0 && strncmp(line, "tavrel_set_callback_delivery: ", 30) == 0);
  CHECK(tavrel_set_callback_delivery(TAVREL_DELIVER_ON_MAIN_LOOP) == TAVREL_OK);

  /* A valid token's completion arises on the URL session's thread. */
  char valid[4200];
  snprintf(valid, sizeof valid, "cgame://validate?launchToken=%s&%s", VALID_TOKEN, strchr(launch, '?') + 1);
  atomic_store(&validated_on_main_thread, false);
  CHECK(tavrel_process_url_request(valid) == TAVREL_OK);
  RUN_UNTIL(atomic_load(&validated_calls) > 1);
  CHECK(atomic_load(&validated_calls) == 2 && atomic_load(&validated_on_main_thread));

  /* A refusal on another thread: its line waits for the loop, and that thread reads it back. */
  on_log("", NULL);
  call_off_main_thread();
  CHECK(strncmp(off_main_line, "tavrel_is_login_page_visible: main thread only", 46) == 0);
  CHECK(!logged("tavrel_is_login_page_visible")); /* the line waits for the loop */
  tavrel_run_main_loop_for(0);
  CHECK(logged("tavrel_is_login_page_visible: main thread only"));
  CHECK(tavrel_set_callback_delivery(TAVREL_DELIVER_WHERE_THEY_ARISE) == TAVREL_OK);
}

static void sizes(tavrel_host *host) {
  EXPECT_REFUSAL(tavrel_host_resize(host, 560, 0, 2.0), TAVREL_ERROR_OUT_OF_RANGE,
                 "tavrel_host_resize: width and height must be 1 to 16384 points, scale above 0 and at most 8");
  EXPECT_REFUSAL(tavrel_host_resize(host, 16384, 420, 2.0), TAVREL_ERROR_OUT_OF_RANGE, "tavrel_host_resize: width");
  CHECK(tavrel_host_resize(host, 10, 10, 8.5) == TAVREL_ERROR_OUT_OF_RANGE);
  /* The edges are in: 32767 pixels a side, 1 to 16384 points, scale 8. */
  CHECK(tavrel_host_resize(host, 16383.5, 1, 2.0) == TAVREL_OK && tavrel_host_resize(host, 1, 16383.5, 2.0) == TAVREL_OK);
  CHECK(tavrel_host_resize(host, 1, 16384, 1.0) == TAVREL_OK && tavrel_host_resize(host, 10, 10, 8.0) == TAVREL_OK);
  const tavrel_finger then_nowhere[] = {{1, 0.5, 0.5}, {2, NAN, 0.5}}; /* only `count` fingers are read */
  CHECK(tavrel_host_fingers_down(host, then_nowhere + 1, 1, NULL) == TAVREL_ERROR_OUT_OF_RANGE);
  CHECK(tavrel_host_fingers_cancelled(host, then_nowhere, 1, NULL) == TAVREL_OK);
  tavrel_finger many[64];
  for (int i = 0; i < 64; ++i) many[i] = (tavrel_finger){100 + i, 0.5, 0.5};
  CHECK(tavrel_host_fingers_cancelled(host, many, 64, NULL) == TAVREL_OK); /* 64 at once, the most */
}

int main(void) {
  const char *tool = getenv("TAVREL_TOOL");
  tavrel_set_log_callback(on_log, NULL);
  tavrel_set_log_to_stderr(false);

  char documents[] = "/tmp/tavrel-c-docs-XXXXXX";
  char uploads[] = "/tmp/tavrel-c-uploads-XXXXXX";
  if (!tool || !mkdtemp(documents) || !mkdtemp(uploads) || !start_service(tool, uploads)) {
    fprintf(stderr, "cannot make the temporary directories or start $TAVREL_TOOL serve\n");
    return 1;
  }

  refusals_before_the_screen();
  CHECK(tavrel_set_documents_directory(documents) == TAVREL_OK);
  CHECK(tavrel_set_info_dictionary_json("{\"CFBundleURLTypes\": [{\"CFBundleURLSchemes\": [\"cgame\"]}]}") ==
        TAVREL_OK);
  CHECK(tavrel_set_trusted_certificates_file(ca_file) == TAVREL_OK);
  CHECK(tavrel_set_service_base_url_for_testing(base_url) == TAVREL_OK);

  tavrel_host *host = NULL;
  CHECK(tavrel_host_new(390, 844, 1.0, on_frame, &last_damage_count, &host) == TAVREL_OK);
  CHECK(tavrel_install_host(host) == TAVREL_OK);
  tavrel_screen *screen = NULL;
  CHECK(tavrel_screen_new(&screen) == TAVREL_OK);
  EXPECT_REFUSAL(tavrel_install_host(host), TAVREL_ERROR_TOO_LATE, "tavrel_install_host: a screen is shown already");

  CHECK(tavrel_initialise_overlay(screen, REFUSED_TOKEN) == TAVREL_OK);
  CHECK(tavrel_show_watermark() == TAVREL_OK && tavrel_show_touches() == TAVREL_OK);
  /* The user id the token carries, cut to the caller's buffer. */
  char id[8] = "x";
  CHECK(tavrel_get_user_id(NULL, 0) == 24 && tavrel_get_user_id(id, 1) == 24 && id[0] == '\0');
  CHECK(tavrel_get_user_id(id, sizeof id) == 24 && strcmp(id, "REFUSED") == 0); /* cut to 7 bytes, terminated */
  EXPECT_REFUSAL(tavrel_get_user_id(NULL, 4), TAVREL_ERROR_NULL_ARGUMENT, "tavrel_get_user_id: buffer is NULL");

  char launch[4096];
  snprintf(launch, sizeof launch, "cgame://validate?gameEventUrl=%s/g.evt&inputEventUrl=%s/i.evt&recordingStartedAt=%lld",
           base_url, base_url, (long long)time(NULL) * 1000);
  CHECK(tavrel_process_url_request(launch) == TAVREL_OK);

  fingers_on_the_game(host);
  the_gate(host);
  callbacks_from_the_loop(launch);
  sizes(host);

  tavrel_screen_free(screen);
  tavrel_host_free(host);
  kill(service, SIGTERM);
  waitpid(service, NULL, 0);
  char cleanup[128];
  snprintf(cleanup, sizeof cleanup, "rm -rf %s %s", documents, uploads);
  CHECK(system(cleanup) == 0);
  printf("%s\n", failures ? "FAILED" : "PASSED");
  return failures ? 1 : 0;
}
