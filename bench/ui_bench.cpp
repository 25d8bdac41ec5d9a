// The view toolkit's drawing and input costs, each against a baseline measured in the same run:
// - sizeWithAttributes against a bare Pango measurement with a reused layout (goal: at most
//   1.3×);
// - a whole frame of 844 × 390 points at scale 2: three labels and ten white discs over a
//   transparent background, every view drawn again (goal: at most 1.5 ms), and the frame after
//   only the labels moved, which composites what they drew (goal: at most 0.04× the whole
//   frame);
// - a touch (down and up) through hit testing and a responder chain five views deep (goal:
//   at most 2 µs).
// Times are CPU time of the thread: the machine is shared.

#include <tavrel_sdk/ui.hpp>

#include "bare_pango.hpp"
#include "bench_support.hpp"
#include "platform/sim_platform.hpp"

#include <benchmark/benchmark.h>
#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace tavrel;

using bench::bestNanosecondsPerCall;
using bench::threadCpuNanoseconds;

constexpr CGSize kScreen{844.0, 390.0};
constexpr double kScale = 2.0;
const std::string kText = "2026:03:09T14:05:33+01:00-no-user-id";

void installSimulation() {
  static const std::shared_ptr<SimPlatform> sim = [] {
    auto platform = SimPlatform::create({.seed = 7});
    Platform::install(platform);
    return platform;
  }();
}

// A key window on a headless screen whose root view is transparent and takes the scene.
struct Screen {
  std::shared_ptr<UIWindow> window;
  std::shared_ptr<UIViewController> root;
  Screen() {
    installSimulation();
    UIHost::install(std::make_shared<HeadlessHost>(kScreen, kScale));
    window = std::make_shared<UIWindow>();
    root = std::make_shared<UIViewController>();
    window->setRootViewController(root);
    window->makeKeyAndVisible();
  }
  ~Screen() { UIHost::install(nullptr); }
};


void BM_SizeWithAttributes(benchmark::State& state) {
  // As the watermark measures: a font made once, the attributes made anew each time.
  const auto font = UIFont::monospacedDigitSystemFontOfSize(10.0, UIFontWeightRegular);
  for (auto _ : state) benchmark::DoNotOptimize(sizeWithAttributes(kText, {font, UIColor::whiteColor()}));
  const double measured =
      bestNanosecondsPerCall(20000, [&] { benchmark::DoNotOptimize(sizeWithAttributes(kText, {font, UIColor::whiteColor()})); });
  bench::BarePango pango(10.0);
  const double bare = bestNanosecondsPerCall(20000, [&] { benchmark::DoNotOptimize(pango.measure(kText).width); });
  state.counters["size_ns"] = measured;
  state.counters["pango_ns"] = bare;
  state.counters["x_pango"] = measured / bare;
}
BENCHMARK(BM_SizeWithAttributes);

// Three watermark labels and the ten touch discs over a transparent screen.
struct DrawingScene : Screen {
  std::vector<std::shared_ptr<UILabel>> labels;
  DrawingScene() {
    UIView& view = *root->view();
    for (int i = 0; i < 10; ++i) {
      auto disc = std::make_shared<UIView>(CGRectMake(40.0 + 75.0 * i, 60.0 + 25.0 * (i % 5), 24.0, 24.0));
      disc->setBackgroundColor(UIColor::colorWithRed(1.0, 1.0, 1.0, 0.6666666666666666));
      disc->layer().setCornerRadius(12.0);
      view.addSubview(disc);
    }
    const CGSize size = sizeWithAttributes(kText, {UIFont::systemFontOfSize(10.0), nullptr});
    for (int i = 0; i < 3; ++i) {
      auto label = std::make_shared<UILabel>(CGRectMake(320.0 * i, 180.0, size.width, size.height));
      label->setText(kText);
      label->setFont(UIFont::monospacedDigitSystemFontOfSize(10.0, UIFontWeightRegular));
      label->setTextColor(UIColor::whiteColor());
      label->setBackgroundColor(UIColor::clearColor());
      view.addSubview(label);
      labels.push_back(label);
    }
    UIHost::current().renderFrame();
  }
  // The root view covers the screen: marking it and the labels draws the whole frame again,
  // text included, as the first frame after a change of screen does.
  void wholeFrame() {
    root->view()->setNeedsDisplay();
    for (const auto& label : labels) label->setNeedsDisplay();
    benchmark::DoNotOptimize(UIHost::current().renderFrame().damage.size());
  }
  void moveLabels(int step) {
    const double dx = (step % 2 == 0) ? -4.666667 : 4.666667;
    for (const auto& label : labels) {
      CGRect frame = label->frame();
      frame.origin.x += dx;
      label->setFrame(frame);
    }
  }
  void labelsMoved(int step) {
    moveLabels(step);
    benchmark::DoNotOptimize(UIHost::current().renderFrame().damage.size());
  }
  // The same move for a host that composites the stores itself: the frame as layers.
  void labelsMovedAsLayers(int step) {
    moveLabels(step);
    benchmark::DoNotOptimize(UIHost::current().renderLayers().layers.size());
  }
};

void BM_WholeFrame(benchmark::State& state) {
  DrawingScene scene;
  for (auto _ : state) scene.wholeFrame();
  state.counters["frame_us"] = bestNanosecondsPerCall(50, [&] { scene.wholeFrame(); }) / 1000.0;
}
BENCHMARK(BM_WholeFrame)->Unit(benchmark::kMicrosecond);

// A move of the labels against the whole CPU frame, measured in the same run.
void movedAgainstWhole(benchmark::State& state, void (DrawingScene::*moved)(int)) {
  DrawingScene scene;
  int step = 0;
  for (auto _ : state) (scene.*moved)(step++);
  const double whole = bestNanosecondsPerCall(50, [&] { scene.wholeFrame(); });
  const double cost = bestNanosecondsPerCall(50, [&] { (scene.*moved)(step++); });
  state.counters["moved_us"] = cost / 1000.0;
  state.counters["whole_us"] = whole / 1000.0;
  state.counters["x_whole"] = cost / whole;
}

void BM_LabelsMovedFrame(benchmark::State& state) { movedAgainstWhole(state, &DrawingScene::labelsMoved); }
BENCHMARK(BM_LabelsMovedFrame)->Unit(benchmark::kMicrosecond);

// What the labels' move costs a host that keeps each store as a texture (the OpenGL host): the
// walk that lists the layers, against the same whole CPU frame.
void BM_LabelsMovedLayers(benchmark::State& state) { movedAgainstWhole(state, &DrawingScene::labelsMovedAsLayers); }
BENCHMARK(BM_LabelsMovedLayers)->Unit(benchmark::kMicrosecond);

void BM_TouchFiveViewsDeep(benchmark::State& state) {
  Screen screen;
  std::shared_ptr<UIView> parent = screen.root->view();
  for (int depth = 0; depth < 5; ++depth) {
    auto child = std::make_shared<UIView>(CGRectMake(10.0, 10.0, 300.0, 300.0));
    parent->addSubview(child);
    parent = child;
  }
  const std::vector<Finger> finger{{1, CGPointMake(100.0, 100.0)}};
  auto touch = [&] {
    UIHost::current().fingersDown(finger);
    UIHost::current().fingersUp(finger);
  };
  for (auto _ : state) touch();
  state.counters["touch_ns"] = bestNanosecondsPerCall(20000, touch);
}
BENCHMARK(BM_TouchFiveViewsDeep);

}  // namespace
