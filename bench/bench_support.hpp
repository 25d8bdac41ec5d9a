#pragma once

// What the benchmarks share: CPU time and best-of-rounds timing, timing a command run, and
// reading the process's memory.

#include <spawn.h>
#include <time.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace tavrel::bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Seconds the `curl` command took with these arguments (argv[0] included), process start
// included. Throws when curl cannot run or fails.
inline double timeCurl(std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const auto start = Clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv.data(), environ) != 0) {
    throw std::runtime_error("cannot run curl");
  }
  int status = 0;
  waitpid(pid, &status, 0);
  const double seconds = secondsSince(start);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("curl failed");
  return seconds;
}

// CPU time of a clock in nanoseconds: the machine is shared, and wall time would count other
// people's work.
inline double cpuNanoseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}
inline double threadCpuNanoseconds() { return cpuNanoseconds(CLOCK_THREAD_CPUTIME_ID); }

// The best of a few rounds of `calls` calls, so that another process's burst does not count.
template <class Body>
double bestNanosecondsPerCall(int calls, Body&& body) {
  double best = 1e300;
  for (int round = 0; round < 5; ++round) {
    const double start = threadCpuNanoseconds();
    for (int i = 0; i < calls; ++i) body();
    best = std::min(best, (threadCpuNanoseconds() - start) / calls);
  }
  return best;
}

inline double residentKilobytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

inline double peakResidentKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss);
}

}  // namespace tavrel::bench
