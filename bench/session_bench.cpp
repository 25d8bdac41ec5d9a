// The main job's cost: the bundled demo session (12 virtual minutes through the whole library)
// played by `tavrel demo`, with a frame drawn every 1/60 s, against the same session drawing no
// frame but its snapshots (--no-frames), run one after the other in each iteration so that both
// see the same machine load. Each is a process of its own (the library's singleton lives once a
// process); its CPU time comes from wait4.
//
// Goals: wall time at most 1 s per virtual minute; CPU time at most 2% of the session's length.
// Counters: wall and CPU seconds of each, CPU as a share of the session, and the ratios of the
// drawn session to the baseline. The tool is TAVREL_TOOL, else build/tools/tavrel/tavrel beside
// this program's build directory.

#include "bench_support.hpp"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <spawn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrel {
namespace {

constexpr double kSessionSeconds = 12 * 60;

std::string toolPath() {
  if (const char* tool = std::getenv("TAVREL_TOOL")) return tool;
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools/tavrel/tavrel").string();
}

struct Cost {
  double wall = 0;
  double cpu = 0;
};

Cost playDemo(bool drawFrames) {
  const std::string out = (std::filesystem::temp_directory_path() / ("session-bench-" + std::to_string(getpid()))).string();
  std::vector<std::string> arguments{toolPath(), "demo", "--out", out};
  if (!drawFrames) arguments.push_back("--no-frames");
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const auto start = bench::Clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot run " + arguments[0]);
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  Cost cost;
  cost.wall = bench::secondsSince(start);
  cost.cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
             static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  std::filesystem::remove_all(out);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("the demo session failed");
  return cost;
}

void BM_DemoSessionDrawnAt60Hz(benchmark::State& state) {
  Cost drawn;
  Cost baseline;
  for (auto _ : state) {
    const Cost withoutFrames = playDemo(false);
    const Cost withFrames = playDemo(true);
    state.SetIterationTime(withFrames.wall);
    drawn.wall += withFrames.wall;
    drawn.cpu += withFrames.cpu;
    baseline.wall += withoutFrames.wall;
    baseline.cpu += withoutFrames.cpu;
  }
  const auto n = static_cast<double>(state.iterations());
  state.counters["wall_s"] = drawn.wall / n;
  state.counters["cpu_s"] = drawn.cpu / n;
  state.counters["wall_s_per_virtual_min"] = drawn.wall / n / (kSessionSeconds / 60);
  state.counters["cpu_share_of_session_%"] = 100 * drawn.cpu / n / kSessionSeconds;
  state.counters["baseline_wall_s"] = baseline.wall / n;
  state.counters["baseline_cpu_s"] = baseline.cpu / n;
  state.counters["wall_ratio_to_baseline"] = drawn.wall / baseline.wall;
  state.counters["cpu_ratio_to_baseline"] = drawn.cpu / baseline.cpu;
}
BENCHMARK(BM_DemoSessionDrawnAt60Hz)->Iterations(2)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace tavrel
