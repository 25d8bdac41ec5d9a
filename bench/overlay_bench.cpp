// The overlay's costs on the main thread, each against a baseline measured in the same run:
// - a watermark tick (engine, timestamp, text, measurement, labels; no drawing) against a bare
//   Pango measurement of the same text plus one engine tick (goal: at most 1.5×), with the
//   allocations a tick makes (operator new is counted);
// - a touch moved whose record the rate limit drops, against emitInputEvent dropping the same
//   array alone (goal: at most 150 ns more);
// - a session at 844 × 390, scale 2: 15 ticks a second, three fingers moving at 60 Hz, a frame
//   drawn 60 times a second, as CPU time over virtual time (goal: at most 3% of one core).

#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include "overlay/overlay_view.hpp"
#include "platform/sim_platform.hpp"
#include "watermark/watermark.hpp"

#include <benchmark/benchmark.h>
#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// Default visibility so that the library's allocations come here too; never inlined, so that GCC
// does not pair the malloc inside with a delete elsewhere and warn of a mismatch.
__attribute__((visibility("default"), noinline)) void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
__attribute__((visibility("default"), noinline)) void operator delete(void* block) noexcept { std::free(block); }
__attribute__((visibility("default"), noinline)) void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

using namespace tavrel;

// The machine is shared: CPU time, not wall time, and the best of a few rounds for baselines.
double cpuNanoseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}
double threadCpuNanoseconds() { return cpuNanoseconds(CLOCK_THREAD_CPUTIME_ID); }

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

constexpr CGSize kScreen{844.0, 390.0};
constexpr double kScale = 2.0;

SimPlatform& simulation() {
  static const std::shared_ptr<SimPlatform> sim = [] {
    auto platform = SimPlatform::create({.seed = 7});
    const auto documents = std::filesystem::temp_directory_path() / "tavrel-overlay-bench";
    std::filesystem::create_directories(documents);
    platform->setDocumentsDirectory(documents.string());
    Platform::install(platform);
    return platform;
  }();
  return *sim;
}

// A game on a headless screen with the singleton's overlay over it, both services on, and
// input events recorded to a file.
struct Scene {
  std::shared_ptr<UIWindow> window;
  std::shared_ptr<UIViewController> game;
  std::shared_ptr<OverlayView> overlay;

  Scene() {
    SimPlatform& sim = simulation();
    UIHost::install(std::make_shared<HeadlessHost>(kScreen, kScale));
    window = std::make_shared<UIWindow>();
    game = std::make_shared<UIViewController>();
    game->view()->setBackgroundColor(UIColor::colorWithRed(0.2, 0.4, 0.6, 1.0));
    window->setRootViewController(game);
    window->makeKeyAndVisible();
    auto& sdk = TavrelSDK::sharedInstance();
    sdk.setOverlayView(nullptr);
    sdk.initialiseOverlay(game, std::nullopt);
    sdk.showWatermark();
    sdk.showTouches();
    overlay = sdk.overlayView();
    _firstWriteToInputEventFile = true;
    sdk.initialiseEventsWithGameEventUrl(std::nullopt, "https://127.0.0.1:9/i.evt", sim.currentMilliseconds());
    sim.runUntilIdle();
  }
};

// What sizeWithAttributes does at its core, set up as the toolkit sets Pango up: the DejaVu Sans
// file alone, unhinted, 72 dpi, one layout reused.
class BarePango {
 public:
  explicit BarePango(double size) {
    FcConfig* config = FcConfigCreate();
    FcConfigAppFontAddFile(config, reinterpret_cast<const FcChar8*>("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"));
    fontMap_ = pango_cairo_font_map_new();
    pango_fc_font_map_set_config(PANGO_FC_FONT_MAP(fontMap_), config);
    FcConfigDestroy(config);
    context_ = pango_font_map_create_context(fontMap_);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context_, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context_, FALSE);
    pango_cairo_context_set_resolution(context_, 72.0);
    layout_ = pango_layout_new(context_);
    description_ = pango_font_description_from_string("DejaVu Sans");
    pango_font_description_set_absolute_size(description_, size * PANGO_SCALE);
    pango_layout_set_font_description(layout_, description_);
  }
  ~BarePango() {
    pango_font_description_free(description_);
    g_object_unref(layout_);
    g_object_unref(context_);
    g_object_unref(fontMap_);
  }
  BarePango(const BarePango&) = delete;
  BarePango& operator=(const BarePango&) = delete;

  CGSize measure(const std::string& text) {
    pango_layout_set_text(layout_, text.data(), static_cast<int>(text.size()));
    PangoRectangle logical;
    pango_layout_get_extents(layout_, nullptr, &logical);
    return {static_cast<double>(logical.width) / PANGO_SCALE, static_cast<double>(logical.height) / PANGO_SCALE};
  }

 private:
  PangoFontMap* fontMap_ = nullptr;
  PangoContext* context_ = nullptr;
  PangoLayout* layout_ = nullptr;
  PangoFontDescription* description_ = nullptr;
};

void BM_WatermarkTick(benchmark::State& state) {
  Scene scene;
  OverlayView& overlay = *scene.overlay;
  const std::uint64_t allocationsBefore = allocations.load();
  const double start = threadCpuNanoseconds();
  for (auto _ : state) overlay.timerFired(nullptr);
  const double tick = (threadCpuNanoseconds() - start) / static_cast<double>(state.iterations());
  const double allocationsPerTick =
      static_cast<double>(allocations.load() - allocationsBefore) / static_cast<double>(state.iterations());

  // The baseline: the same text measured by Pango directly, and one engine tick in the
  // overlay's order on an engine of its own.
  const std::string text = TavrelSDK::getTimestamp() + "-" + TavrelSDK::getUserId();
  BarePango pango(overlay.font()->pointSize());
  Watermark engine;
  engine.setCanvasDimensionWithWidth(static_cast<float>(kScreen.width), static_cast<float>(kScreen.height));
  engine.setBehaviourType(WatermarkBehaviourTypeTicker);
  const CGSize size = pango.measure(text);
  const double measurement = bestNanosecondsPerCall(20000, [&] { benchmark::DoNotOptimize(pango.measure(text)); });
  const double engineTick = bestNanosecondsPerCall(200000, [&] {
    engine.updateWithDelta(OverlayView::kTickStep);
    engine.setTextDimensionsWithWidth(static_cast<float>(size.width), static_cast<float>(size.height));
    benchmark::DoNotOptimize(engine.getRenderList());
  });
  state.counters["labels"] = static_cast<double>(overlay.textViews().size());
  state.counters["tick_ns"] = tick;
  state.counters["pango_ns"] = measurement;
  state.counters["engine_ns"] = engineTick;
  state.counters["x_baseline"] = tick / (measurement + engineTick);
  state.counters["allocs_per_tick"] = allocationsPerTick;
}
BENCHMARK(BM_WatermarkTick);

void BM_DroppedTouchMoved(benchmark::State& state) {
  Scene scene;
  auto& sdk = TavrelSDK::sharedInstance();
  OverlayView& overlay = *scene.overlay;
  const auto touch = std::make_shared<UITouch>(1, CGPointMake(200.0, 100.0), scene.window.get(), &overlay, 0.0);
  const UITouchSet touches{touch};
  const UIEvent event(touches, 0.0);
  overlay.touchesBegan(touches, &event);
  // The rate limit's run is used up and the virtual clock stands still: every record is dropped.
  _eventsSinceLastUpdate = 5;
  _lastUpdated = Platform::current().currentMilliseconds();
  const std::uint64_t allocationsBefore = allocations.load();
  const double start = threadCpuNanoseconds();
  for (auto _ : state) overlay.touchesMoved(touches, &event);
  const double moved = (threadCpuNanoseconds() - start) / static_cast<double>(state.iterations());
  const double allocationsPerTouch =
      static_cast<double>(allocations.load() - allocationsBefore) / static_cast<double>(state.iterations());

  const std::vector<std::int32_t> array{6, 0, 6, 0, 15534, 16805, 1};
  const double emit = bestNanosecondsPerCall(200000, [&] { sdk.emitInputEvent(array); });
  overlay.touchesEnded(touches, &event);
  state.counters["moved_ns"] = moved;
  state.counters["emit_alone_ns"] = emit;
  state.counters["extra_ns"] = moved - emit;
  state.counters["allocs_per_touch"] = allocationsPerTouch;
}
BENCHMARK(BM_DroppedTouchMoved);

// Three fingers on circles of their own, at 60 Hz.
std::vector<Finger> fingersAt(double seconds) {
  std::vector<Finger> fingers;
  for (int i = 0; i < 3; ++i) {
    const double angle = seconds * (1.0 + 0.5 * i) + i * 2.0;
    fingers.push_back({i + 1, CGPointMake(kScreen.width * (0.25 + 0.25 * i) + 80.0 * std::cos(angle),
                                          kScreen.height * 0.5 + 80.0 * std::sin(angle))});
  }
  return fingers;
}

void BM_SessionAt60Frames(benchmark::State& state) {
  constexpr int kFramesPerSecond = 60;
  constexpr double kSeconds = 20.0;
  SimPlatform& sim = simulation();
  Scene scene;
  UIHost& host = UIHost::current();
  for (auto _ : state) {
    host.fingersDown(fingersAt(0.0));
    host.renderFrame();
    const double processStart = cpuNanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    const double threadStart = threadCpuNanoseconds();
    const int frames = static_cast<int>(kSeconds * kFramesPerSecond);
    for (int frame = 1; frame <= frames; ++frame) {
      host.fingersMoved(fingersAt(static_cast<double>(frame) / kFramesPerSecond));
      sim.advance(1.0 / kFramesPerSecond);
      benchmark::DoNotOptimize(host.renderFrame().pixels);
    }
    const double process = cpuNanoseconds(CLOCK_PROCESS_CPUTIME_ID) - processStart;
    const double thread = threadCpuNanoseconds() - threadStart;
    host.fingersUp(fingersAt(kSeconds));
    state.counters["frame_us"] = thread / frames / 1e3;
    state.counters["main_thread_core_pct"] = 100.0 * thread / (kSeconds * 1e9);
    state.counters["process_core_pct"] = 100.0 * process / (kSeconds * 1e9);
  }
}
BENCHMARK(BM_SessionAt60Frames)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
