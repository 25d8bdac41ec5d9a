// A live page left open through a long session: `tavrel serve` with its page open in headless
// Chromium while a scripted session of nearly two hours of virtual time sends it about 20,000
// requests (two token checks a step, a game event, a finger moving, uploads every 30 s).
// Resident memory of the server, and of the browser's processes, after the first 200 requests
// (the baseline: the page's table is full from then on) and after the last.
// Goal: the server within 1 MB of its baseline. Skipped without Chromium.

#include "bench_support.hpp"

#include <benchmark/benchmark.h>

#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace {

namespace fs = std::filesystem;

const std::string kToken = "long-page-token-00000000player-long-000000000001";

// "VmRSS:" for all of it, "RssAnon:" for what the process allocated (without the pages of its
// code and fonts, mapped in once as they are first used).
double residentMegabytes(int pid, const std::string& field = "VmRSS:") {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return std::stod(line.substr(field.size())) / 1024.0;
  }
  return 0;
}

// The process and every process under it.
double treeResidentMegabytes(int root) {
  std::map<int, int> parents;
  if (DIR* proc = opendir("/proc")) {
    while (dirent* entry = readdir(proc)) {
      const int pid = std::atoi(entry->d_name);
      if (pid <= 0) continue;
      std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
      std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
      const auto close = text.rfind(')');
      if (close == std::string::npos) continue;
      std::istringstream rest(text.substr(close + 2));
      char state = 0;
      int parent = 0;
      rest >> state >> parent;
      parents[pid] = parent;
    }
    closedir(proc);
  }
  double total = 0;
  for (const auto& [pid, parent] : parents) {
    for (int p = pid; p > 1; p = parents.count(p) ? parents[p] : 0) {
      if (p == root) {
        total += residentMegabytes(pid);
        break;
      }
    }
  }
  return total;
}

std::string chromium() {
  for (const char* path : {"/usr/bin/chromium", "/usr/bin/chromium-browser"}) {
    if (fs::exists(path)) return path;
  }
  return {};
}

// A child with stdout on a pipe; its pid is printed by the shell before exec.
struct Child {
  explicit Child(const std::string& command) {
    out = ::popen(("echo $$; exec " + command).c_str(), "r");
    pid = std::stoi(line());
  }
  ~Child() {
    ::kill(pid, SIGKILL);
    ::pclose(out);
  }
  std::string line() {
    char text[4096];
    if (std::fgets(text, sizeof text, out) == nullptr) return {};
    return std::string(text, std::strcspn(text, "\n"));
  }
  std::FILE* out = nullptr;
  int pid = -1;
};

void BM_LivePageThroughALongSession(benchmark::State& state) {
  const std::string browser = chromium();
  if (browser.empty()) {
    state.SkipWithError("Chromium is not installed (scripts/setup installs it)");
    return;
  }
  const fs::path dir = fs::temp_directory_path() / ("live-page-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  {
    std::ofstream script(dir / "long.session");
    script << "screen 390x844 @1\ngame plain\n"
           << "launch token=" << kToken << " game-events=/long/g.evt input-events=/long/i.evt\n"
           << "initialise-overlay " << kToken << "\nshow-touches\n"
           << "down 1 60,200\nmove 1 330,700 60,200 330,200 60,700 over 6990\n"
           << "repeat 9985\nvalidate\nvalidate\ngame-event tick step\nwait 0.7\nend\n";
  }
  for (auto _ : state) {
    Child serve("'" TAVREL_TOOL "' serve --token " + kToken);
    std::map<std::string, std::string> banner;
    for (std::string line; banner.count("launch-url") == 0 && !(line = serve.line()).empty();) {
      banner[line.substr(0, line.find(": "))] = line.substr(line.find(": ") + 2);
    }
    const std::string root = ::geteuid() == 0 ? " --no-sandbox" : "";
    Child page(browser + " --headless=new --disable-gpu --ignore-certificate-errors" + root + " --user-data-dir=" +
               (dir / "profile").string() + " --remote-debugging-port=0 '" + banner["page"] + "' 2>/dev/null");
    std::this_thread::sleep_for(std::chrono::seconds(5));  // the page loads and opens its stream

    std::atomic<long> requests{0};
    double serverAt200 = 0, serverAnonAt200 = 0, browserAt200 = 0;
    std::thread counter([&] {
      while (!serve.line().empty()) {
        // The server's memory as the session goes on, on stderr.
        if (++requests % 2000 == 0) {
          std::fprintf(stderr, "%6ld requests: server %.1f MB, %.1f MB of it allocated\n", requests.load(),
                       residentMegabytes(serve.pid), residentMegabytes(serve.pid, "RssAnon:"));
        }
        if (requests == 200) {
          serverAt200 = residentMegabytes(serve.pid);
          serverAnonAt200 = residentMegabytes(serve.pid, "RssAnon:");
          browserAt200 = treeResidentMegabytes(page.pid);
        }
      }
    });
    const auto start = tavrel::bench::Clock::now();
    const std::string run = "'" TAVREL_TOOL "' run '" + (dir / "long.session").string() + "' --no-frames --out '" +
                            (dir / "out").string() + "' --service " + banner["base-url"] + " --ca-file " +
                            banner["ca-file"] + " >/dev/null";
    const int status = std::system(run.c_str());
    const double seconds = tavrel::bench::secondsSince(start);
    // The page takes the last events, and the server draws the last uploads: until its memory
    // holds still for a second (on a loaded machine the drawing runs seconds behind).
    for (double last = -1, now = 0; std::abs(now - last) > 0.05;) {
      std::this_thread::sleep_for(std::chrono::seconds(1));
      last = std::exchange(now, residentMegabytes(serve.pid));
    }
    const double serverAtEnd = residentMegabytes(serve.pid);
    const double serverAnonAtEnd = residentMegabytes(serve.pid, "RssAnon:");
    const double browserAtEnd = treeResidentMegabytes(page.pid);
    ::kill(page.pid, SIGKILL);
    ::kill(serve.pid, SIGKILL);
    counter.join();
    if (status != 0) state.SkipWithError("the session failed");
    state.counters["requests"] = static_cast<double>(requests.load());
    state.counters["run_s"] = seconds;
    state.counters["server_mb_at_200"] = serverAt200;
    state.counters["server_mb_at_end"] = serverAtEnd;
    state.counters["server_growth_mb"] = serverAtEnd - serverAt200;
    state.counters["server_anon_mb_at_200"] = serverAnonAt200;
    state.counters["server_anon_growth_mb"] = serverAnonAtEnd - serverAnonAt200;
    state.counters["browser_mb_at_200"] = browserAt200;
    state.counters["browser_mb_at_end"] = browserAtEnd;
    state.counters["browser_over_200"] = browserAt200 > 0 ? browserAtEnd / browserAt200 : 0;
  }
  fs::remove_all(dir);
}
BENCHMARK(BM_LivePageThroughALongSession)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
