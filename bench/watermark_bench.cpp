// The watermark tick as the overlay runs it (update, text size, list), against a baseline that
// does the least any tick returning the same list must do: one vector of as many items, filled
// by float additions. Allocations are counted with a replaced global operator new.

#include "allocation_counter.hpp"
#include "bench_support.hpp"
#include "platform/sim_platform.hpp"
#include "watermark/watermark.hpp"

#include <benchmark/benchmark.h>

#include <time.h>

#include <atomic>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace {

using tavrel::bench::threadCpuNanoseconds;

constexpr float kTick = 1.0f / 15.0f;
constexpr float kCanvasWidth = 844.0f;
constexpr float kCanvasHeight = 390.0f;
constexpr float kTextWidth = 300.0f;
constexpr float kTextHeight = 12.0f;

void installSimulation() {
  static const bool installed = [] {
    tavrel::Platform::install(tavrel::SimPlatform::create({.seed = 7}));
    return true;
  }();
  (void)installed;
}

std::unique_ptr<tavrel::Watermark> makeWatermark(std::int32_t type) {
  installSimulation();
  auto watermark = std::make_unique<tavrel::Watermark>();
  watermark->setCanvasDimensionWithWidth(kCanvasWidth, kCanvasHeight);
  watermark->setBehaviourType(type);
  return watermark;
}

// One tick in the overlay's order.
std::size_t tick(tavrel::Watermark& watermark) {
  watermark.updateWithDelta(kTick);
  watermark.setTextDimensionsWithWidth(kTextWidth, kTextHeight);
  const auto items = watermark.getRenderList();
  benchmark::DoNotOptimize(items->data());
  return items->size();
}

// The baseline: a list of `count` items from float additions, one allocation.
void baselineTick(float& x, std::size_t count) {
  x = x - 4.666667f;
  if (x < -kTextWidth) x = 0.0f;
  std::vector<tavrel::RenderItem> items;
  items.reserve(count);
  float at = x;
  for (std::size_t i = 0; i < count; ++i, at = at + (kTextWidth + 20.0f)) items.emplace_back(at, 216.0f);
  benchmark::DoNotOptimize(items.data());
}

double nanosecondsPerBaselineTick(std::size_t count) {
  constexpr int kRuns = 200000;
  double best = 1e300;
  for (int round = 0; round < 5; ++round) {
    float x = 0.0f;
    const double start = threadCpuNanoseconds();
    for (int i = 0; i < kRuns; ++i) baselineTick(x, count);
    best = std::min(best, (threadCpuNanoseconds() - start) / kRuns);
  }
  return best;
}

void reportAgainstBaseline(benchmark::State& state, double elapsed, std::size_t items) {
  const double perTick = elapsed / static_cast<double>(state.iterations());
  const double baseline = nanosecondsPerBaselineTick(items);
  state.counters["items"] = static_cast<double>(items);
  state.counters["tick_cpu_ns"] = perTick;
  state.counters["baseline_ns"] = baseline;
  state.counters["x_baseline"] = perTick / baseline;
}

void runTicks(benchmark::State& state, std::int32_t type) {
  const auto watermark = makeWatermark(type);
  std::size_t items = 0;
  const double start = threadCpuNanoseconds();
  for (auto _ : state) items = tick(*watermark);
  reportAgainstBaseline(state, threadCpuNanoseconds() - start, items);
}

void BM_TickerTick(benchmark::State& state) { runTicks(state, tavrel::WatermarkBehaviourTypeTicker); }
BENCHMARK(BM_TickerTick);

void BM_MultilineTick(benchmark::State& state) {
  runTicks(state, tavrel::WatermarkBehaviourTypeMultilineTicker);
}
BENCHMARK(BM_MultilineTick);

void BM_BaselineTick3Items(benchmark::State& state) {
  float x = 0.0f;
  for (auto _ : state) baselineTick(x, 3);
}
BENCHMARK(BM_BaselineTick3Items);

// Over a million ticks (a thousand change periods), every allocation beyond the returned list
// would show as allocs_per_tick above 1.
void allocationsPerTick(benchmark::State& state, std::int32_t type) {
  constexpr std::uint64_t kTicks = 1000000;
  for (auto _ : state) {
    const auto watermark = makeWatermark(type);
    const std::uint64_t before = tavrel::bench::allocations.load();
    for (std::uint64_t i = 0; i < kTicks; ++i) tick(*watermark);
    state.counters["allocs_per_tick"] =
        static_cast<double>(tavrel::bench::allocations.load() - before) / static_cast<double>(kTicks);
  }
}

void BM_TickerAllocations(benchmark::State& state) {
  allocationsPerTick(state, tavrel::WatermarkBehaviourTypeTicker);
}
BENCHMARK(BM_TickerAllocations)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_MultilineAllocations(benchmark::State& state) {
  allocationsPerTick(state, tavrel::WatermarkBehaviourTypeMultilineTicker);
}
BENCHMARK(BM_MultilineAllocations)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
