// A C call costs what its C++ call costs, each pair measured in the same run, alternating:
// - tavrel_emit_input_event dropped by the rate limit against TavrelSDK::emitInputEvent of the
//   same record (goal: at most 1.1×);
// - a frame rendered through tavrel_host_render_frame against UIHost::renderFrame on the same
//   host and scene, three labels moved each frame (goal: at most 1.02×).
// Times are CPU time of the thread, best of rounds: the machine is shared.

#include <tavrel_sdk/tavrel.h>
#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include "bench_support.hpp"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace tavrel;

// Runs a and b in alternating rounds of `calls` calls; the best per-call CPU time of each.
template <class A, class B>
std::pair<double, double> bestOfAlternating(int rounds, int calls, A&& a, B&& b) {
  double bestA = 1e300, bestB = 1e300;
  for (int round = 0; round < rounds; ++round) {
    bestA = std::min(bestA, bench::bestNanosecondsPerCall(calls, a));
    bestB = std::min(bestB, bench::bestNanosecondsPerCall(calls, b));
  }
  return {bestA, bestB};
}

template <class Body>
double once(Body&& body) {
  const double start = bench::threadCpuNanoseconds();
  body();
  return bench::threadCpuNanoseconds() - start;
}

double lowerQuartile(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 4, values.end());
  return values[values.size() / 4];
}

void report(benchmark::State& state, std::pair<double, double> cAndCxx, const char* unit) {
  const double scale = std::string(unit) == "us" ? 1000.0 : 1.0;
  state.counters[std::string("c_") + unit] = cAndCxx.first / scale;
  state.counters[std::string("cxx_") + unit] = cAndCxx.second / scale;
  state.counters["c_over_cxx"] = cAndCxx.first / cAndCxx.second;
}

void BM_EmitInputEventDropped(benchmark::State& state) {
  const auto directory = std::filesystem::temp_directory_path() / ("c-interface-bench-" + std::to_string(getpid()));
  auto platform = Platform::makeLinux();
  platform->setDocumentsDirectory(directory.string());
  platform->setLogToStderr(false);
  Platform::install(platform);
  TavrelSDK& sdk = TavrelSDK::sharedInstance();
  _startedEventThread = true;  // the upload worker stays out
  sdk.initialiseEventsWithGameEventUrl("https://127.0.0.1:1/g.evt", "https://127.0.0.1:1/i.evt",
                                       platform->currentMilliseconds());
  // A full run whose last event lies in the future: every event is dropped.
  _eventsSinceLastUpdate = 5;
  _lastUpdated = platform->currentMilliseconds() + 3600 * 1000;

  const std::vector<std::int32_t> touch = {6, 0, 6, 3, 16887, 15549, 0};
  for (auto _ : state) tavrel_emit_input_event(touch.data(), touch.size());
  report(state,
         bestOfAlternating(
             10, 20000, [&] { tavrel_emit_input_event(touch.data(), touch.size()); },
             [&] { sdk.emitInputEvent(touch); }),
         "ns");
  if (!_firstWriteToInputEventFile.load()) state.SkipWithError("an event got through the rate limit");
  std::filesystem::remove_all(directory);
}
BENCHMARK(BM_EmitInputEventDropped);

// Three watermark-like labels over a transparent screen of 390 × 844 points at scale 2, on a
// host made through the C interface; each frame moves the labels and draws what changed.
void BM_RenderFrame(benchmark::State& state) {
  tavrel_host* handle = nullptr;
  if (tavrel_host_new(390, 844, 2.0, [](const tavrel_frame*, void*) {}, nullptr, &handle) != TAVREL_OK ||
      tavrel_install_host(handle) != TAVREL_OK) {
    state.SkipWithError("no host");
    return;
  }
  UIHost& host = *hostFromC(handle);
  auto window = std::make_shared<UIWindow>();
  auto root = std::make_shared<UIViewController>();
  window->setRootViewController(root);
  window->makeKeyAndVisible();
  std::vector<std::shared_ptr<UILabel>> labels;
  for (int i = 0; i < 3; ++i) {
    auto label = std::make_shared<UILabel>(CGRectMake(10.0, 200.0 + 240.0 * i, 210.0, 12.0));
    label->setText("2026:03:09T14:05:33+01:00-no-user-id");
    label->setTextColor(UIColor::whiteColor());
    root->view()->addSubview(label);
    labels.push_back(label);
  }
  int step = 0;
  const auto move = [&] {
    const double dx = (step++ % 2 == 0) ? -4.666667 : 4.666667;
    for (const auto& label : labels) {
      CGRect frame = label->frame();
      frame.origin.x += dx;
      label->setFrame(frame);
    }
  };
  tavrel_frame frame{};
  const auto throughC = [&] {
    move();
    tavrel_host_render_frame(handle, &frame);
    benchmark::DoNotOptimize(frame.damage_count);
  };
  const auto throughCxx = [&] {
    move();
    benchmark::DoNotOptimize(host.renderFrame().damage.size());
  };
  for (auto _ : state) throughC();
  // Frame by frame, in turns, so both sides meet the same load; the lower quartile of each
  // leaves out frames another process slowed.
  std::vector<double> c, cxx;
  for (int i = 0; i < 600; ++i) {
    c.push_back(once(throughC));
    cxx.push_back(once(throughCxx));
  }
  report(state, {lowerQuartile(c), lowerQuartile(cxx)}, "us");
  tavrel_host_free(handle);
}
BENCHMARK(BM_RenderFrame)->Unit(benchmark::kMicrosecond);

}  // namespace
