// What a validation costs now that replies are bounded and requests time out.
//
// BM_ValidationOverPlainLibcurl: a token check through Validation against the same GET by a
// plain libcurl handle of the benchmark's own, both on kept connections to one loopback HTTPS
// server that answers at once, interleaved in each iteration. Reported time is Validation's;
// validation_over_libcurl (medians of wall time) and cpu_validation_over_libcurl (the process's
// CPU time, server threads included on both sides) are the ratios to hold against the same
// figures from an older build.
//
// BM_PeakMemoryOfA300MBReply: the process's peak resident memory while a validation reads a
// normal reply and while one meets a 300 MB reply (streamed, so the server holds none of it),
// then while an upload is answered with 300 MB. Each growth is measured from the resident
// memory just before, with the peak reset; *_over_normal_MB is the goal's figure (at most 2).

#include "backend/validation.hpp"

#include "endpoint/https_server.hpp"

#include "bench_support.hpp"

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <stdexcept>

namespace tavrel {
namespace {

using bench::Clock;
using bench::secondsSince;

const std::string kToken = "0123456789abcdef0123456789abcdef0123456789abcdef";
constexpr std::size_t kHugeReplyPieces = 4578;  // of 64 KiB: 300 MB

bool validateOnce() {
  std::promise<bool> done;
  Validation::validate(kToken, [&done](bool valid) { done.set_value(valid); });
  return done.get_future().get();
}

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

endpoint::HttpsServer::Options keptConnections() {
  endpoint::HttpsServer::Options options;
  options.keepAlive = true;
  options.keepBodies = false;
  return options;
}

void BM_ValidationOverPlainLibcurl(benchmark::State& state) {
  endpoint::HttpsServer server(keptConnections());
  server.addRoute("GET", std::string(kValidatePath), [](const endpoint::RecordedRequest&) {
    return endpoint::Reply{200, R"({"valid":true})"};
  });
  server.start();
  auto platform = Platform::makeLinux();
  platform->setTrustedCertificatesFile(server.caFile());
  platform->setServiceBaseUrlForTesting(server.baseUrl());
  Platform::install(platform);

  std::string pem = readAll(server.caFile());
  CURL* easy = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, ("Authorization: " + kToken).c_str());
  std::string body;
  curl_blob blob{pem.data(), pem.size(), CURL_BLOB_COPY};
  const std::string url = server.url(kValidatePath);
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, +[](char* data, std::size_t size, std::size_t n, void* out) {
    static_cast<std::string*>(out)->append(data, size * n);
    return size * n;
  });
  const auto plainGet = [&] {
    body.clear();
    if (curl_easy_perform(easy) != CURLE_OK || body.find("true") == std::string::npos) {
      throw std::runtime_error("plain libcurl request failed");
    }
  };
  // Both connections made before the timed requests.
  plainGet();
  if (!validateOnce()) throw std::runtime_error("validation failed");

  // Medians and process CPU time: the machine is shared, and a mean of wall times follows the
  // neighbours' load more than the request's cost.
  std::vector<double> validation;
  std::vector<double> plain;
  double validationCpu = 0;
  double plainCpu = 0;
  for (auto _ : state) {
    auto cpu = bench::cpuNanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    auto start = Clock::now();
    if (!validateOnce()) throw std::runtime_error("validation failed");
    validation.push_back(secondsSince(start));
    validationCpu += bench::cpuNanoseconds(CLOCK_PROCESS_CPUTIME_ID) - cpu;
    state.SetIterationTime(validation.back());
    cpu = bench::cpuNanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    start = Clock::now();
    plainGet();
    plain.push_back(secondsSince(start));
    plainCpu += bench::cpuNanoseconds(CLOCK_PROCESS_CPUTIME_ID) - cpu;
  }
  curl_slist_free_all(headers);
  curl_easy_cleanup(easy);
  Platform::install(nullptr);

  const auto median = [](std::vector<double>& times) {
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2), times.end());
    return times[times.size() / 2];
  };
  const double validationMedian = median(validation);
  const double plainMedian = median(plain);
  state.counters["validation_median_us"] = validationMedian * 1e6;
  state.counters["libcurl_median_us"] = plainMedian * 1e6;
  state.counters["validation_over_libcurl"] = validationMedian / plainMedian;
  state.counters["cpu_validation_over_libcurl"] = validationCpu / plainCpu;
}
BENCHMARK(BM_ValidationOverPlainLibcurl)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(2.0);

// Peak resident memory (kB) grown while `body` runs, from the resident memory just before.
template <class Body>
double peakGrowthKilobytes(Body&& body) {
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts again from now
  const double before = bench::residentKilobytes();
  body();
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) - before;
  }
  throw std::runtime_error("no VmHWM in /proc/self/status");
}

void BM_PeakMemoryOfA300MBReply(benchmark::State& state) {
  endpoint::HttpsServer normal(keptConnections());
  normal.addRoute("GET", std::string(kValidatePath), [](const endpoint::RecordedRequest&) {
    return endpoint::Reply{200, R"({"valid":true})"};
  });
  normal.start();
  endpoint::HttpsServer huge(keptConnections());
  const auto hugeReply = [](const endpoint::RecordedRequest&) {
    return endpoint::Reply{.status = 200, .body = std::string(64 * 1024, ' '), .repeat = kHugeReplyPieces};
  };
  huge.addRoute("GET", std::string(kValidatePath), hugeReply);
  huge.addRoute("PUT", "/g.evt", hugeReply);
  huge.start();
  auto platform = Platform::makeLinux();
  platform->setTrustedCertificatesFile(normal.caFile());
  Platform::install(platform);

  double normalGrowth = 0;
  double hugeGrowth = 0;
  double uploadGrowth = 0;
  for (auto _ : state) {
    platform->setTrustedCertificatesFile(normal.caFile());
    platform->setServiceBaseUrlForTesting(normal.baseUrl());
    normalGrowth += peakGrowthKilobytes([] {
      if (!validateOnce()) throw std::runtime_error("validation failed");
    });
    platform->setTrustedCertificatesFile(huge.caFile());
    platform->setServiceBaseUrlForTesting(huge.baseUrl());
    hugeGrowth += peakGrowthKilobytes([] {
      if (validateOnce()) throw std::runtime_error("a 300 MB reply was read as yes");
    });
    uploadGrowth += peakGrowthKilobytes([&] {
      UrlRequest request;
      request.url = huge.url("/g.evt");
      request.method = "PUT";
      request.body = "GEV\n1\n";
      request.keepsResponseBody = false;
      std::promise<UrlResponse> done;
      platform->dataTask(std::move(request), [&done](UrlResponse r) { done.set_value(std::move(r)); });
      if (done.get_future().get().statusCode != 200) throw std::runtime_error("upload failed");
    });
  }
  Platform::install(nullptr);

  const double n = static_cast<double>(state.iterations()) * 1024.0;
  state.counters["normal_reply_MB"] = normalGrowth / n;
  state.counters["validation_300MB_over_normal_MB"] = (hugeGrowth - normalGrowth) / n;
  state.counters["upload_300MB_over_normal_MB"] = (uploadGrowth - normalGrowth) / n;
}
BENCHMARK(BM_PeakMemoryOfA300MBReply)->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel
