/* A game in C11 through tavrel.h alone: a gated session, headless, against the mock service
 * (tavrel serve, started here), on the real clock; and every status code with its log line. */
#define _XOPEN_SOURCE 700

#include <tavrel_sdk/tavrel.h>

#include <dirent.h>
#include <ftw.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char **environ;

#define REFUSED_TOKEN "TOKENPREFIX-0123456789ab" "REFUSED-0123456789abcdef"

static int failures;

#define CHECK(condition) check((condition), #condition, __LINE__)

static bool check(bool ok, const char *what, int line) {
  if (!ok) {
    fprintf(stderr, "c_interface_test.c:%d: failed: %s\n", line, what);
    ++failures;
  }
  return ok;
}

/* ---- The log, as the game's callback sees it --------------------------------------------- */

static pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
static char log_text[1 << 16];
static size_t log_length;

static void on_log(const char *line, void *user_data) {
  (void)user_data;
  pthread_mutex_lock(&log_mutex);
  const size_t n = strlen(line);
  if (log_length + n + 2 < sizeof log_text) {
    memcpy(log_text + log_length, line, n);
    log_length += n;
    log_text[log_length++] = '\n';
    log_text[log_length] = '\0';
  }
  pthread_mutex_unlock(&log_mutex);
}

/* The status, and one line logged since the mark that holds text. */
static void expect_refusal(tavrel_status status, tavrel_status expected, size_t mark, const char *text,
                           int line) {
  pthread_mutex_lock(&log_mutex);
  const bool logged = strstr(log_text + mark, text) != NULL;
  pthread_mutex_unlock(&log_mutex);
  if (status != expected || !logged) {
    fprintf(stderr, "c_interface_test.c:%d: status %d (%s), wanted %d (%s); log line \"%s\" %s\n", line,
            (int)status, tavrel_status_text(status), (int)expected, tavrel_status_text(expected), text,
            logged ? "found" : "missing");
    ++failures;
  }
}

static size_t log_mark(void) {
  pthread_mutex_lock(&log_mutex);
  const size_t mark = log_length;
  pthread_mutex_unlock(&log_mutex);
  return mark;
}

#define EXPECT_REFUSAL(call, expected, text)          \
  do {                                                \
    const size_t mark_ = log_mark();                  \
    const tavrel_status status_ = (call);             \
    expect_refusal(status_, expected, mark_, text, __LINE__); \
  } while (0)

/* ---- The mock service, a child process ---------------------------------------------------- */

static pid_t service;
static char base_url[1024];
static char ca_file[1024];

static bool start_service(const char *tool, const char *uploads) {
  int out[2];
  if (pipe(out) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, out[0]);
  posix_spawn_file_actions_addclose(&actions, out[1]);
  char *argv[] = {(char *)tool, "serve", "--refuse-token", REFUSED_TOKEN, "--user", "ann:secret",
                  "--uploads", (char *)uploads, "--scheme", "cgame", NULL};
  const int spawned = posix_spawn(&service, tool, &actions, NULL, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (spawned != 0) {
    close(out[0]);
    return false;
  }
  FILE *lines = fdopen(out[0], "r");
  char line[1024];
  while (lines && fgets(line, sizeof line, lines)) {
    line[strcspn(line, "\n")] = '\0';
    if (strncmp(line, "base-url: ", 10) == 0) memcpy(base_url, line + 10, strlen(line + 10) + 1);
    if (strncmp(line, "ca-file: ", 9) == 0) memcpy(ca_file, line + 9, strlen(line + 9) + 1);
    if (strncmp(line, "launch-url: ", 12) == 0) break;
  }
  if (lines) fclose(lines); /* the service ignores a reader that goes */
  return base_url[0] && ca_file[0];
}

static void stop_service(void) {
  if (service <= 0) return;
  kill(service, SIGTERM);
  waitpid(service, NULL, 0);
}

/* ---- Helpers ------------------------------------------------------------------------------ */

static double now_seconds(void) {
  struct timespec t;
  clock_gettime(CLOCK_REALTIME, &t);
  return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static bool page_visible(void) {
  bool visible = false;
  CHECK(tavrel_is_login_page_visible(&visible) == TAVREL_OK);
  return visible;
}

/* Runs the main loop until *flag (read through the function) is what is wanted, up to 10 s. */
static bool run_until(bool (*condition)(void *), void *argument) {
  const double deadline = now_seconds() + 10.0;
  while (!condition(argument)) {
    if (now_seconds() > deadline) return false;
    tavrel_run_main_loop_for(0.02);
  }
  return true;
}

static bool page_is(void *wanted) { return page_visible() == *(bool *)wanted; }

struct gate {
  pthread_t main_thread;
  atomic_int calls;
  atomic_bool on_main_thread;
  atomic_bool ok;
};

static void on_validated(bool ok, void *user_data) {
  struct gate *gate = user_data;
  atomic_store(&gate->on_main_thread, pthread_equal(pthread_self(), gate->main_thread) != 0);
  atomic_store(&gate->ok, ok);
  atomic_fetch_add(&gate->calls, 1);
}

static bool called(void *gate) { return atomic_load(&((struct gate *)gate)->calls) > 0; }

struct frames {
  int count;
  size_t last_damage_count;
};

static void on_frame(const tavrel_frame *frame, void *user_data) {
  struct frames *frames = user_data;
  ++frames->count;
  frames->last_damage_count = frame->damage_count;
}

static size_t read_file(const char *path, unsigned char *buffer, size_t size) {
  FILE *file = fopen(path, "rb");
  if (!file) return 0;
  const size_t n = fread(buffer, 1, size, file);
  fclose(file);
  return n;
}

static int32_t word_at(const unsigned char *bytes) {
  return (int32_t)((uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 |
                   (uint32_t)bytes[3] << 24);
}

static bool inside(const tavrel_rect *r, double x, double y) {
  return x >= r->x && x < r->x + r->width && y >= r->y && y < r->y + r->height;
}

static void *call_off_main_thread(void *result) {
  bool visible;
  *(tavrel_status *)result = tavrel_is_login_page_visible(&visible);
  return NULL;
}

static int remove_entry(const char *path, const struct stat *st, int flag, struct FTW *ftw) {
  (void)st, (void)flag, (void)ftw;
  return remove(path);
}

/* ---- The parts ------------------------------------------------------------------------------ */

/* Each refusal before any screen exists: the status and its one log line. */
static void refusals_before_the_screen(void) {
  EXPECT_REFUSAL(tavrel_process_url_request(NULL), TAVREL_ERROR_NULL_ARGUMENT,
                 "tavrel_process_url_request: url is NULL");
  EXPECT_REFUSAL(tavrel_emit_game_event("jump", "\xC3\x28"), TAVREL_ERROR_INVALID_UTF8,
                 "tavrel_emit_game_event: name is not valid UTF-8");
  EXPECT_REFUSAL(tavrel_run_main_loop_for(-1.0), TAVREL_ERROR_OUT_OF_RANGE,
                 "tavrel_run_main_loop_for: seconds must be 0 to 3600");
  EXPECT_REFUSAL(tavrel_set_info_dictionary_json("[\"cgame\"]"), TAVREL_ERROR_INVALID_ARGUMENT,
                 "tavrel_set_info_dictionary_json: json is not a JSON object");
  EXPECT_REFUSAL(tavrel_show_touches(), TAVREL_ERROR_NOT_READY,
                 "tavrel_show_touches: no overlay yet");
  const int32_t miscounted[] = {3, 0, 7};
  EXPECT_REFUSAL(tavrel_emit_input_event(miscounted, 3), TAVREL_ERROR_INVALID_ARGUMENT,
                 "tavrel_emit_input_event: words[0] must be count - 1");

  tavrel_status off_main = TAVREL_OK;
  pthread_t thread;
  const size_t mark = log_mark();
  pthread_create(&thread, NULL, call_off_main_thread, &off_main);
  pthread_join(thread, NULL);
  expect_refusal(off_main, TAVREL_ERROR_WRONG_THREAD, mark, "tavrel_is_login_page_visible: main thread only",
                 __LINE__);

  CHECK(strcmp(tavrel_status_text(TAVREL_OK), "ok") == 0);
  CHECK(strcmp(tavrel_status_text((tavrel_status)42), "unknown status") == 0);
}

static void token_and_user_id(void) {
  char id[8];
  CHECK(tavrel_get_user_id(NULL, 0) == 24);
  CHECK(tavrel_get_user_id(id, sizeof id) == 24);
  CHECK(strcmp(id, "REFUSED") == 0); /* cut to 7 bytes and terminated */
  EXPECT_REFUSAL(tavrel_get_user_id(NULL, 4), TAVREL_ERROR_NULL_ARGUMENT, "tavrel_get_user_id: buffer is NULL");

  char stamp[40]; /* 2026:03:09T14:05:33+01:00, or ...33Z in UTC */
  const int length = tavrel_get_timestamp(stamp, sizeof stamp);
  CHECK((length == 25 || length == 20) && (int)strlen(stamp) == length && stamp[4] == ':' && stamp[10] == 'T');
}

/* Two fingers in one call are one set of touches: each gets its mark, and a frame draws again
   only around the marks that moved. */
static void fingers_on_the_game(tavrel_host *host, const struct frames *frames) {
  const tavrel_finger down[] = {{1, 100.0, 300.0}, {2, 200.0, 500.0}};
  const tavrel_finger moved[] = {{1, 110.0, 320.0}, {2, 190.0, 480.0}};
  bool taken = true;
  CHECK(tavrel_host_fingers_down(host, down, 2, &taken) == TAVREL_OK && !taken);

  tavrel_frame frame;
  CHECK(tavrel_host_render_frame(host, &frame) == TAVREL_OK);
  CHECK(frame.width == 390 && frame.height == 844 && frame.stride >= 390 * 4 && frame.pixels);
  CHECK(tavrel_host_render_frame(host, &frame) == TAVREL_OK && frame.damage_count == 0);

  CHECK(tavrel_host_fingers_moved(host, moved, 2, &taken) == TAVREL_OK && !taken);
  CHECK(tavrel_host_render_frame(host, &frame) == TAVREL_OK && frame.damage_count > 0);
  CHECK(frames->last_damage_count == frame.damage_count);
  long area = 0;
  for (size_t i = 0; i < frame.damage_count; ++i) {
    const tavrel_rect *r = &frame.damage[i];
    area += (long)r->width * r->height;
    bool near_a_finger = false;
    for (int f = 0; f < 2; ++f) {
      near_a_finger = near_a_finger || (r->x > down[f].x - 40 && r->x + r->width < moved[f].x + 40 &&
                                        r->y > down[f].y - 40 && r->y + r->height < moved[f].y + 60) ||
                      (r->x > moved[f].x - 40 && r->x + r->width < down[f].x + 40 &&
                       r->y > moved[f].y - 40 && r->y + r->height < down[f].y + 60);
    }
    CHECK(near_a_finger);
  }
  CHECK(area < 390 * 844 / 20);
  for (int f = 0; f < 2; ++f) {
    bool covered = false;
    for (size_t i = 0; i < frame.damage_count; ++i) covered = covered || inside(&frame.damage[i], moved[f].x, moved[f].y);
    CHECK(covered);
  }
  CHECK(tavrel_host_fingers_up(host, moved, 2, &taken) == TAVREL_OK && !taken);
}

/* A refused token, the page, the player's fingers and keys, the login, the completion. */
static void the_gate(tavrel_host *host) {
  static struct gate gate;
  gate.main_thread = pthread_self();
  CHECK(tavrel_validate(on_validated, &gate) == TAVREL_OK);
  bool up = true;
  CHECK(run_until(page_is, &up));
  tavrel_run_main_loop_for(0.5); /* the page slides in */
  bool covered = false;
  CHECK(tavrel_host_is_covered(host, &covered) == TAVREL_OK && covered);
  CHECK(atomic_load(&gate.calls) == 0);

  const tavrel_finger corner = {7, 5.0, 5.0};
  bool taken = false;
  CHECK(tavrel_host_fingers_down(host, &corner, 1, &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_fingers_cancelled(host, &corner, 1, &taken) == TAVREL_OK && taken);

  bool tapped = false;
  CHECK(tavrel_host_tap_element(host, "Tavrel username", &tapped) == TAVREL_OK && tapped);
  CHECK(tavrel_host_type_text(host, "ann", &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_tap_element(host, "Password", &tapped) == TAVREL_OK && tapped);
  CHECK(tavrel_host_type_text(host, "secrex", &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_press_backspace(host, &taken) == TAVREL_OK && taken);
  CHECK(tavrel_host_type_text(host, "t", &taken) == TAVREL_OK && taken);

  char *tree = NULL;
  CHECK(tavrel_dump_view_tree(&tree) == TAVREL_OK && tree && strstr(tree, "\"LoginViewController\""));
  tavrel_free(tree);

  CHECK(tavrel_host_tap_element(host, "Login", &tapped) == TAVREL_OK && tapped);
  CHECK(run_until(called, &gate));
  up = false;
  CHECK(run_until(page_is, &up));
  tavrel_run_main_loop_for(0.1);
  CHECK(atomic_load(&gate.calls) == 1);
  CHECK(atomic_load(&gate.ok));
  CHECK(atomic_load(&gate.on_main_thread));
  CHECK(tavrel_host_is_covered(host, &covered) == TAVREL_OK && !covered);
}

/* The two event files in the Documents directory, by their magic. */
static void event_files(const char *documents) {
  DIR *dir = opendir(documents);
  if (!CHECK(dir != NULL)) return;
  bool game_file = false, input_file = false;
  for (struct dirent *entry; (entry = readdir(dir));) {
    if (!strstr(entry->d_name, ".evt")) continue;
    char path[1024];
    unsigned char bytes[4096];
    snprintf(path, sizeof path, "%s/%s", documents, entry->d_name);
    const size_t n = read_file(path, bytes, sizeof bytes - 1);
    bytes[n] = 0;
    if (n > 6 && memcmp(bytes, "GEV\n1\n", 6) == 0) {
      game_file = true;
      CHECK(strstr((const char *)bytes, "{\"a\": \"level-1\", \"e\": \"start\", \"t\": ") != NULL);
    }
    if (n > 4 && memcmp(bytes, "INP\x02", 4) == 0) {
      input_file = true;
      /* Two touch moved records (finger marks 0 and 1), then two touch ended records. */
      if (CHECK(n == 4 + 2 * 32 + 2 * 20)) {
        CHECK(word_at(bytes + 8) == 7 && word_at(bytes + 8 + 32) == 7);
        CHECK(word_at(bytes + 20) != word_at(bytes + 20 + 32));
        CHECK(word_at(bytes + 4 + 64 + 4) == 4 && word_at(bytes + 4 + 84 + 4) == 4);
      }
    }
  }
  closedir(dir);
  CHECK(game_file);
  CHECK(input_file);
}

int main(void) {
  const char *tool = getenv("TAVREL_TOOL");
  if (!tool) {
    puts("SKIPPED: TAVREL_TOOL does not name the tavrel tool (the mock service)");
    return 77;
  }
  tavrel_set_log_callback(on_log, NULL);
  tavrel_set_log_to_stderr(false);

  char documents[] = "/tmp/tavrel-c-docs-XXXXXX";
  char uploads[] = "/tmp/tavrel-c-uploads-XXXXXX";
  if (!mkdtemp(documents) || !mkdtemp(uploads) || !start_service(tool, uploads)) {
    fprintf(stderr, "cannot set up the temporary directories or start %s serve\n", tool);
    return 1;
  }

  refusals_before_the_screen();
  CHECK(tavrel_set_documents_directory(documents) == TAVREL_OK);
  CHECK(tavrel_set_info_dictionary_json("{\"CFBundleURLTypes\": [{\"CFBundleURLSchemes\": [\"cgame\"]}]}") ==
        TAVREL_OK);
  CHECK(tavrel_set_trusted_certificates_file(ca_file) == TAVREL_OK);
  CHECK(tavrel_set_service_base_url_for_testing(base_url) == TAVREL_OK);

  static struct frames frames;
  tavrel_host *host = NULL;
  CHECK(tavrel_host_new(390, 844, 1.0, on_frame, &frames, &host) == TAVREL_OK);
  CHECK(tavrel_install_host(host) == TAVREL_OK);
  tavrel_screen *screen = NULL;
  CHECK(tavrel_screen_new(&screen) == TAVREL_OK);
  EXPECT_REFUSAL(tavrel_install_host(host), TAVREL_ERROR_TOO_LATE, "tavrel_install_host: a screen is shown already");
  EXPECT_REFUSAL(tavrel_host_write_png(host, "/nonexistent-dir/frame.png"), TAVREL_ERROR_FAILED,
                 "tavrel_host_write_png: could not write /nonexistent-dir/frame.png");

  CHECK(tavrel_initialise_overlay(screen, REFUSED_TOKEN) == TAVREL_OK);
  CHECK(tavrel_show_watermark() == TAVREL_OK);
  CHECK(tavrel_show_touches() == TAVREL_OK);
  token_and_user_id();

  char launch[4096];
  snprintf(launch, sizeof launch, "cgame://validate?gameEventUrl=%s/g.evt&inputEventUrl=%s/i.evt&recordingStartedAt=%lld",
           base_url, base_url, (long long)(now_seconds() * 1000.0));
  CHECK(tavrel_process_url_request(launch) == TAVREL_OK);

  fingers_on_the_game(host, &frames);
  the_gate(host);
  CHECK(tavrel_emit_game_event("level-1", "start") == TAVREL_OK);
  event_files(documents);

  tavrel_screen_free(screen);
  tavrel_host_free(host);
  stop_service();
  nftw(documents, remove_entry, 8, FTW_DEPTH | FTW_PHYS);
  nftw(uploads, remove_entry, 8, FTW_DEPTH | FTW_PHYS);
  printf("%s\n", failures ? "FAILED" : "PASSED");
  return failures ? 1 : 0;
}
