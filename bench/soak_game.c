/* Memory over a long session: a headless game in C, through tavrel.h alone, at 60 frames a
 * second on the real clock. 844 x 390 points at scale 2, watermark and touch marks on, three
 * fingers moving the whole time, a game event each frame, and upload URLs on a port that
 * refuses every connection, so each pass fails and sends the files whole again.
 *
 * Each minute it prints the process's resident memory beside the two event files' sizes. The
 * baseline is the larger file's own growth: from minute 1 to the last, resident memory should
 * grow by no more than it plus 0.25 MB (the exit status is 1 when it grew more).
 *
 *   build/bench/soak_game                    # 15 minutes
 *   build/bench/soak_game --minutes 3 --minute 20   # three "minutes" of 20 s, while developing
 */
#define _GNU_SOURCE

#include <tavrel_sdk/tavrel.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <math.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#define TOKEN "soak-token-0000000000000" "player-soak-000000000001"

static double now_seconds(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static double resident_mb(void) {
  long pages = 0, resident = 0;
  FILE *statm = fopen("/proc/self/statm", "r");
  if (!statm) return -1;
  if (fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = -1;
  fclose(statm);
  return (double)resident * (double)sysconf(_SC_PAGESIZE) / (1024.0 * 1024.0);
}

/* The sizes of the game event file ("GEV\n...") and the input event file ("INP\2...") in dir. */
static void event_file_sizes(const char *dir, double *game_mb, double *input_mb) {
  *game_mb = *input_mb = 0;
  DIR *d = opendir(dir);
  if (!d) return;
  struct dirent *entry;
  while ((entry = readdir(d)) != NULL) {
    if (!strstr(entry->d_name, ".evt")) continue;
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, entry->d_name);
    FILE *f = fopen(path, "rb");
    if (!f) continue;
    char magic[4] = {0};
    const size_t n = fread(magic, 1, 4, f);
    fclose(f);
    struct stat st;
    if (n < 3 || stat(path, &st) != 0) continue;
    const double mb = (double)st.st_size / (1024.0 * 1024.0);
    if (memcmp(magic, "GEV", 3) == 0) *game_mb = mb;
    if (memcmp(magic, "INP", 3) == 0) *input_mb = mb;
  }
  closedir(d);
}

/* A port that refuses connections for as long as the socket stays open: bound, not listening. */
static int refusing_port(int *socket_out) {
  const int s = socket(AF_INET, SOCK_STREAM, 0);
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = 0};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (s < 0 || bind(s, (struct sockaddr *)&address, sizeof address) != 0 ||
      getsockname(s, (struct sockaddr *)&address, &length) != 0) {
    perror("refusing port");
    exit(2);
  }
  *socket_out = s;
  return ntohs(address.sin_port);
}

static void remove_folder(const char *dir) {
  DIR *d = opendir(dir);
  if (d) {
    struct dirent *entry;
    while ((entry = readdir(d)) != NULL) {
      if (entry->d_name[0] == '.') continue;
      char path[4096];
      snprintf(path, sizeof path, "%s/%s", dir, entry->d_name);
      unlink(path);
    }
    closedir(d);
  }
  rmdir(dir);
}

static unsigned long log_lines;
static void count_log_line(const char *line, void *user_data) {
  (void)line;
  (void)user_data;
  __atomic_add_fetch(&log_lines, 1, __ATOMIC_RELAXED);
}

#define CALL(expression)                                                        \
  do {                                                                          \
    const tavrel_status status_ = (expression);                                 \
    if (status_ != TAVREL_OK) {                                                 \
      fprintf(stderr, "%s: %s\n", #expression, tavrel_status_text(status_));    \
      exit(2);                                                                  \
    }                                                                           \
  } while (0)

int main(int argc, char **argv) {
  int minutes = 15;
  double minute = 60.0;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (strcmp(argv[i], "--minutes") == 0) minutes = atoi(argv[i + 1]);
    else if (strcmp(argv[i], "--minute") == 0) minute = atof(argv[i + 1]);
  }
  if (minutes < 2 || !(minute > 0)) {
    fprintf(stderr, "usage: soak_game [--minutes N (2 or more)] [--minute SECONDS]\n");
    return 2;
  }

  char dir[] = "/tmp/tavrel-soak-XXXXXX";
  if (!mkdtemp(dir)) return 2;
  int refusing = -1;
  const int port = refusing_port(&refusing);

  tavrel_set_log_to_stderr(false);
  tavrel_set_log_callback(count_log_line, NULL);
  CALL(tavrel_set_documents_directory(dir));
  tavrel_host *host = NULL;
  CALL(tavrel_host_new(844, 390, 2, NULL, NULL, &host));
  CALL(tavrel_install_host(host));
  tavrel_screen *screen = NULL;
  CALL(tavrel_screen_new(&screen));
  CALL(tavrel_initialise_overlay(screen, TOKEN));
  CALL(tavrel_show_watermark());
  CALL(tavrel_show_touches());
  char launch[512];
  snprintf(launch, sizeof launch,
           "tavreldemo://validate?launchToken=%s&gameEventUrl=http://127.0.0.1:%d/g.evt"
           "&inputEventUrl=http://127.0.0.1:%d/i.evt",
           TOKEN, port, port);
  CALL(tavrel_process_url_request(launch));

  tavrel_finger fingers[3];
  for (int f = 0; f < 3; ++f) fingers[f] = (tavrel_finger){f + 1, 200.0 + 200.0 * f, 195.0};
  CALL(tavrel_host_fingers_down(host, fingers, 3, NULL));

  printf("minute  resident MB  game events MB  input events MB  frames  late frames\n");
  fflush(stdout);
  const double frame = 1.0 / 60.0;
  const double start = now_seconds();
  double first_resident = 0, first_larger = 0, last_resident = 0, last_larger = 0;
  long frames = 0, late = 0;
  for (int m = 1; m <= minutes; ++m) {
    const double minute_end = start + m * minute;
    for (;;) {
      const double due = start + (double)frames * frame;
      if (due >= minute_end) break;
      const double t = (double)frames * frame;
      for (int f = 0; f < 3; ++f) {
        const double angle = t * (1.0 + 0.3 * f) + f;
        fingers[f].x = 211.0 * (f + 1) + 120.0 * cos(angle);
        fingers[f].y = 195.0 + 150.0 * sin(angle);
      }
      CALL(tavrel_host_fingers_moved(host, fingers, 3, NULL));
      char data[32];
      snprintf(data, sizeof data, "frame %ld", frames);
      CALL(tavrel_emit_game_event(data, "tick"));
      tavrel_frame rendered;
      CALL(tavrel_host_render_frame(host, &rendered));
      ++frames;
      const double wait = start + (double)frames * frame - now_seconds();
      if (wait > 0) {
        CALL(tavrel_run_main_loop_for(wait));
      } else {
        ++late;
        CALL(tavrel_run_main_loop_for(0));
      }
    }
    double game_mb = 0, input_mb = 0;
    event_file_sizes(dir, &game_mb, &input_mb);
    const double resident = resident_mb();
    const double larger = game_mb > input_mb ? game_mb : input_mb;
    if (m == 1) {
      first_resident = resident;
      first_larger = larger;
    }
    last_resident = resident;
    last_larger = larger;
    printf("%6d  %11.2f  %14.3f  %15.3f  %6ld  %11ld\n", m, resident, game_mb, input_mb, frames, late);
    fflush(stdout);
  }

  const double growth = last_resident - first_resident;
  const double file_growth = last_larger - first_larger;
  const int met = growth <= file_growth + 0.25;
  printf("minute 1 to %d: resident +%.2f MB, larger event file +%.2f MB (ratio %.2f), goal <= +%.2f MB: %s; "
         "%lu log lines\n",
         minutes, growth, file_growth, file_growth > 0 ? growth / file_growth : 0.0, file_growth + 0.25,
         met ? "met" : "MISSED", __atomic_load_n(&log_lines, __ATOMIC_RELAXED));
  close(refusing);
  remove_folder(dir);
  /* The library has no tear-down: the process ends here with its threads where they are. */
  fflush(stdout);
  _exit(met ? 0 : 1);
}
