// The URL session against the `curl` command, both on the loopback HTTPS server, interleaved in
// each iteration so that both see the same machine load. Reported time is the session's; the
// counters give curl's time and the ratio (curl time / session time: above 1, the session is
// faster). The 10 MB upload also reports the process's peak memory growth, which includes the
// body read from the file.

#include "platform/url_session.hpp"

#include "endpoint/https_server.hpp"

#include "bench_support.hpp"

#include <benchmark/benchmark.h>

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
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

struct Fixture {
  Fixture() {
    endpoint::HttpsServer::Options options;
    options.keepBodies = false;  // the server's copy must not count against the client's memory
    server = std::make_unique<endpoint::HttpsServer>(options);
    server->addRoute("GET", "/m/launch/project/validate",
                     [](const endpoint::RecordedRequest&) { return endpoint::Reply{200, R"({"valid":true})"}; });
    server->start();
    platform->setTrustedCertificatesFile(server->caFile());

    directory = std::filesystem::temp_directory_path() / ("url-session-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory);
    uploadFile = (directory / "upload.bin").string();
    // Written in pieces, so that the process's peak memory is not raised before the upload runs.
    std::ofstream out(uploadFile, std::ios::binary);
    std::mt19937 random(7);
    std::string piece(64 * 1024, '\0');
    for (std::size_t written = 0; written < kUploadSize; written += piece.size()) {
      for (char& c : piece) c = static_cast<char>(random());  // incompressible
      out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    }
    residentAtStart = residentKilobytes();
  }
  ~Fixture() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  std::unique_ptr<endpoint::HttpsServer> server;
  std::shared_ptr<Platform> platform = Platform::makeLinux();
  std::filesystem::path directory;
  std::string uploadFile;
  double residentAtStart = 0;  // before any upload: a benchmark function runs more than once
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string data(std::filesystem::file_size(path), '\0');
  in.read(data.data(), static_cast<std::streamsize>(data.size()));
  return data;
}

// Seconds the request took through the session, from dataTask() to its completion.
double timeSession(UrlRequest request) {
  std::promise<UrlResponse> done;
  auto result = done.get_future();
  const auto start = Clock::now();
  fixture().platform->dataTask(std::move(request), [&done](UrlResponse r) { done.set_value(std::move(r)); });
  const UrlResponse response = result.get();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (response.error || response.statusCode != 200) throw std::runtime_error("session request failed");
  return seconds;
}

// Each iteration sends the request through the session, then the same through curl. The
// session's time includes making the request (an upload reads its file, as curl does).
void compareWithCurl(benchmark::State& state, const std::function<UrlRequest()>& makeRequest,
                     std::vector<std::string> curlArguments) {
  double session = 0;
  double curl = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    UrlRequest request = makeRequest();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count() + timeSession(std::move(request));
    state.SetIterationTime(seconds);
    session += seconds;
    curl += timeCurl(curlArguments);
  }
  const auto n = static_cast<double>(state.iterations());
  state.counters["session_ms"] = session / n * 1e3;
  state.counters["curl_ms"] = curl / n * 1e3;
  state.counters["curl_time_over_session_time"] = curl / session;
}

// Registered first: the peak memory it reports is the process's high-water mark.
void BM_Put10MB(benchmark::State& state) {
  Fixture& f = fixture();
  const std::string url = f.server->url("/uploads/upload.bin");
  compareWithCurl(
      state,
      [&] {
        UrlRequest request;
        request.url = url;
        request.method = "PUT";
        request.headers = {{"Content-Type", "application/octet-stream"}};
        request.body = readWhole(f.uploadFile);
        return request;
      },
      {"curl", "-sS", "-o", "/dev/null", "-T", f.uploadFile, "--cacert", f.server->caFile(), "-H", "Expect:",
       "-H", "Content-Type: application/octet-stream", url});
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kUploadSize));
  state.counters["peak_growth_MB"] = (peakResidentKilobytes() - f.residentAtStart) / 1024.0;
  state.counters["budget_MB"] = static_cast<double>(kUploadSize) / (1024.0 * 1024.0) + 16.0;
}
BENCHMARK(BM_Put10MB)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_SmallGet(benchmark::State& state) {
  Fixture& f = fixture();
  const std::string url = f.server->url("/m/launch/project/validate");
  const std::string token = "0123456789abcdef0123456789abcdef0123456789abcdef";
  compareWithCurl(
      state,
      [&] {
        UrlRequest request;
        request.url = url;
        request.headers = {{"Authorization", token}};
        return request;
      },
      {"curl", "-sS", "-o", "/dev/null", "--cacert", f.server->caFile(), "-H", "Authorization: " + token, url});
}
BENCHMARK(BM_SmallGet)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel
