// Event recording on the real Linux platform, each operation beside a baseline measured in the
// same iteration, so that both see the same machine load. Reported time is the SDK's; counters
// give the baseline's and the ratio.
//
//   BM_EmitGameEvent:        an accepted game event vs open/lseek/write/close of the same line.
//   BM_EmitInputEventDropped: an input event the rate limit drops vs one clock_gettime.
//   BM_Upload10MB:           uploadFileToUrl of a 10 MB file to the loopback HTTPS server vs the
//                            `curl` command for the same PUT; plus the process's peak memory growth.

#include <tavrel_sdk/tavrel_sdk.hpp>

#include "bench_support.hpp"
#include "endpoint/https_server.hpp"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>
#include <stdexcept>

namespace tavrel {
namespace {

using bench::Clock;
using bench::peakResidentKilobytes;
using bench::residentKilobytes;
using bench::timeCurl;
constexpr std::size_t kUploadSize = 10 * 1024 * 1024;
constexpr int kBatch = 256;  // operations timed together, so the clock's own cost disappears

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

struct Fixture {
  Fixture() {
    endpoint::HttpsServer::Options options;
    options.keepBodies = false;  // the server shares the process: its copy must not count
    server = std::make_unique<endpoint::HttpsServer>(options);
    server->start();

    directory = std::filesystem::temp_directory_path() / ("recording-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory / "Documents");
    platform->setDocumentsDirectory((directory / "Documents").string());
    platform->setTrustedCertificatesFile(server->caFile());
    platform->setLogToStderr(false);
    Platform::install(platform);

    // The worker stays out: these benchmarks time the writers and one upload by themselves.
    _startedEventThread = true;
    TavrelSDK::sharedInstance().initialiseEventsWithGameEventUrl(server->url("/g.evt"), server->url("/i.evt"),
                                                                 platform->currentMilliseconds());
    baselinePath = (directory / "baseline.evt").string();
    std::ofstream(baselinePath) << "GEV\n1\n";

    // Written in pieces, so that the peak memory is not raised before the upload runs.
    uploadPath = (directory / "Documents" / "upload.evt").string();
    std::ofstream out(uploadPath, std::ios::binary);
    std::mt19937 random(7);
    std::string piece(64 * 1024, '\0');
    for (std::size_t written = 0; written < kUploadSize; written += piece.size()) {
      for (char& c : piece) c = static_cast<char>(random());
      out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    }
    residentAtStart = residentKilobytes();
  }
  ~Fixture() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  std::shared_ptr<Platform> platform = Platform::makeLinux();
  std::unique_ptr<endpoint::HttpsServer> server;
  std::filesystem::path directory;
  std::string baselinePath;
  std::string uploadPath;
  double residentAtStart = 0;
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

// Runs `subject` and `baseline` kBatch times each per iteration. The reported time is the
// subject's for a whole batch; the counters give each side per operation.
template <typename Subject, typename Baseline>
void compare(benchmark::State& state, Subject subject, Baseline baseline) {
  double subjectSeconds = 0, baselineSeconds = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    for (int i = 0; i < kBatch; ++i) subject();
    const auto middle = Clock::now();
    for (int i = 0; i < kBatch; ++i) baseline();
    const auto end = Clock::now();
    state.SetIterationTime(seconds(middle - start));
    subjectSeconds += seconds(middle - start);
    baselineSeconds += seconds(end - middle);
  }
  const double operations = static_cast<double>(state.iterations()) * kBatch;
  state.SetItemsProcessed(static_cast<std::int64_t>(operations));
  state.counters["sdk_ns"] = subjectSeconds / operations * 1e9;
  state.counters["baseline_ns"] = baselineSeconds / operations * 1e9;
  state.counters["sdk_over_baseline"] = subjectSeconds / baselineSeconds;
}

void BM_EmitGameEvent(benchmark::State& state) {
  Fixture& f = fixture();
  TavrelSDK& sdk = TavrelSDK::sharedInstance();
  const std::optional<std::string> data = "jump", name = "level-2";
  const std::string line = "{\"a\": \"jump\", \"e\": \"level-2\", \"t\": 4250}\n";
  compare(
      state, [&] { sdk.emitGameEvent(data, name); },
      [&] {
        const int fd = ::open(f.baselinePath.c_str(), O_WRONLY | O_CLOEXEC);
        ::lseek(fd, 0, SEEK_END);
        benchmark::DoNotOptimize(::write(fd, line.data(), line.size()));
        ::close(fd);
      });
  if (_firstWriteToGameEventFile.load() || !_hasUpdatedGameEvents.load()) state.SkipWithError("no event was written");
}
BENCHMARK(BM_EmitGameEvent)->UseManualTime();

void BM_EmitInputEventDropped(benchmark::State& state) {
  fixture();
  TavrelSDK& sdk = TavrelSDK::sharedInstance();
  const std::vector<std::int32_t> touch = {6, 0, 6, 3, 16887, 15549, 0};
  // A full run whose last event lies in the future: every event is dropped.
  _eventsSinceLastUpdate = 5;
  _lastUpdated = Platform::current().currentMilliseconds() + 3600 * 1000;
  compare(
      state, [&] { sdk.emitInputEvent(touch); },
      [] {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
      });
  if (!_firstWriteToInputEventFile.load()) state.SkipWithError("an event got through the rate limit");
}
BENCHMARK(BM_EmitInputEventDropped)->UseManualTime();

double timeUpload(const std::string& url) {
  std::promise<bool> done;
  auto uploaded = done.get_future();
  const auto start = Clock::now();
  TavrelSDK::sharedInstance().uploadFileToUrl("upload.evt", url, 0, [&done](bool ok) { done.set_value(ok); });
  if (!uploaded.get()) throw std::runtime_error("upload failed");
  return bench::secondsSince(start);
}

// Peak RSS is a high-water mark: the benchmarks before this one stay far below it.
void BM_Upload10MB(benchmark::State& state) {
  Fixture& f = fixture();
  const std::string url = f.server->url("/uploads/upload.evt");
  const std::vector<std::string> curl = {"curl", "-sS", "--fail", "-o", "/dev/null", "-T", f.uploadPath,
                                         "--cacert", f.server->caFile(), "-H", "Expect:",
                                         "-H", "Content-Type: application/octet-stream", url};
  double sdk = 0, baseline = 0;
  for (auto _ : state) {
    const double s = timeUpload(url);
    state.SetIterationTime(s);
    sdk += s;
    baseline += timeCurl(curl);
  }
  const auto n = static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kUploadSize));
  state.counters["sdk_ms"] = sdk / n * 1e3;
  state.counters["curl_ms"] = baseline / n * 1e3;
  state.counters["throughput_vs_curl"] = baseline / sdk;  // goal: 0.7 or more
  state.counters["peak_growth_MB"] = (peakResidentKilobytes() - f.residentAtStart) / 1024.0;
}
BENCHMARK(BM_Upload10MB)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel
