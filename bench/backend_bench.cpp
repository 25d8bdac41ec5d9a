// A token check through Validation::validate, from the call to its completion.
//
// BM_ValidationRoundTrip: against the `curl` command sending the same request, both to the
// loopback HTTPS server and interleaved in each iteration so that both see the same load. Each
// request opens a new connection (the server closes every connection after one reply). Reported
// time is Validation's; the counter validation_time_over_curl_time is the goal's ratio (at most 2).
//
// BM_SecondValidationOnAKeptConnection: a fresh session per iteration checks a token twice with
// a server that keeps connections open: the first check pays the TLS handshake, the second
// reuses its connection. Reported time is the second's; second_over_first is the goal's ratio
// (at most 0.25), service_connections_per_iteration the handshakes the service saw (1 when the
// second check reused the connection).

#include "backend/validation.hpp"

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"

#include "bench_support.hpp"

#include <benchmark/benchmark.h>


#include <chrono>
#include <future>
#include <stdexcept>


namespace tavrel {
namespace {

using bench::Clock;
using bench::secondsSince;
using bench::timeCurl;

const std::string kToken = "0123456789abcdef0123456789abcdef0123456789abcdef";

double timeValidation() {
  std::promise<bool> done;
  const auto start = Clock::now();
  Validation::validate(kToken, [&done](bool valid) { done.set_value(valid); });
  const bool valid = done.get_future().get();
  const double seconds = secondsSince(start);
  if (!valid) throw std::runtime_error("validation failed");
  return seconds;
}

void BM_ValidationRoundTrip(benchmark::State& state) {
  endpoint::HttpsServer::Options options;
  options.keepBodies = false;
  endpoint::HttpsServer server(options);
  server.addRoute("GET", std::string(kValidatePath), [](const endpoint::RecordedRequest& request) {
    return endpoint::Reply{200, request.header("Authorization") == kToken ? R"({"valid":true})" : "{}"};
  });
  server.start();
  auto platform = Platform::makeLinux();
  platform->setTrustedCertificatesFile(server.caFile());
  platform->setServiceBaseUrlForTesting(server.baseUrl());
  Platform::install(platform);

  const std::vector<std::string> curl = {"curl", "-sS", "-o", "/dev/null", "--cacert", server.caFile(), "-H",
                                         "Authorization: " + kToken, server.url(kValidatePath)};
  double validation = 0;
  double curlTotal = 0;
  for (auto _ : state) {
    const double seconds = timeValidation();
    state.SetIterationTime(seconds);
    validation += seconds;
    curlTotal += timeCurl(curl);
  }
  Platform::install(nullptr);

  const auto n = static_cast<double>(state.iterations());
  state.counters["validation_ms"] = validation / n * 1e3;
  state.counters["curl_ms"] = curlTotal / n * 1e3;
  state.counters["validation_time_over_curl_time"] = validation / curlTotal;
}
BENCHMARK(BM_ValidationRoundTrip)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_SecondValidationOnAKeptConnection(benchmark::State& state) {
  endpoint::HttpsServer::Options options;
  options.keepAlive = true;
  options.keepBodies = false;
  endpoint::HttpsServer service(options);
  endpoint::MockService{.validTokens = {kToken}}.install(service);
  service.start();
  // Another host, so that the session, its thread and libcurl are up before the timed checks.
  endpoint::HttpsServer warmUp(options);
  endpoint::MockService{.validTokens = {kToken}}.install(warmUp);
  warmUp.start();

  double first = 0;
  double second = 0;
  for (auto _ : state) {
    auto platform = Platform::makeLinux();
    platform->setTrustedCertificatesFile(warmUp.caFile());
    platform->setServiceBaseUrlForTesting(warmUp.baseUrl());
    Platform::install(platform);
    timeValidation();
    platform->setTrustedCertificatesFile(service.caFile());
    platform->setServiceBaseUrlForTesting(service.baseUrl());

    first += timeValidation();
    const double seconds = timeValidation();
    state.SetIterationTime(seconds);
    second += seconds;
  }
  Platform::install(nullptr);

  const auto n = static_cast<double>(state.iterations());
  state.counters["first_ms"] = first / n * 1e3;
  state.counters["second_ms"] = second / n * 1e3;
  state.counters["second_over_first"] = second / first;
  state.counters["service_connections_per_iteration"] = static_cast<double>(service.connectionsAccepted()) / n;
}
BENCHMARK(BM_SecondValidationOnAKeptConnection)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel
