/* The C side of dotnet_bench: the same loops as Bench.cs, in C, on the same library and state,
   so the two are measured in one run. Times are CPU time of the calling thread. */
#include <tavrel_sdk/tavrel.h>

#include <time.h>

double bench_thread_cpu_ns(void) {
  struct timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return (double)now.tv_sec * 1e9 + (double)now.tv_nsec;
}

/* Nanoseconds a call of tavrel_emit_input_event, `calls` of one touch moved record. */
double bench_emit_input_events(int calls) {
  static const int32_t touch[] = {6, 0, 6, 3, 16887, 15549, 0};
  const double start = bench_thread_cpu_ns();
  for (int i = 0; i < calls; ++i) tavrel_emit_input_event(touch, 7);
  return (bench_thread_cpu_ns() - start) / calls;
}

/* Nanoseconds a frame: a finger moved to and fro, the frame rendered, its damage copied. */
double bench_frames(tavrel_host *host, int frames, void *buffer, int stride) {
  tavrel_finger finger = {1, 100, 300};
  tavrel_frame frame;
  const double start = bench_thread_cpu_ns();
  for (int i = 0; i < frames; ++i) {
    finger.x = 100 + (i % 2) * 40;
    tavrel_host_fingers_moved(host, &finger, 1, NULL);
    tavrel_host_render_frame(host, &frame);
    tavrel_frame_copy_pixels(&frame, TAVREL_PIXELS_BGRA_PREMULTIPLIED, false, buffer, stride);
  }
  return (bench_thread_cpu_ns() - start) / frames;
}
