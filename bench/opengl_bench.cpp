// The OpenGL compositor on Mesa's llvmpipe (EGL, no window), a game of 1920 × 1080 at scale 1
// with the singleton's overlay, each figure against a baseline measured in the same run:
// - a frame in which only the watermark moved: the compositor's CPU time (the layers' walk,
//   uploads of stores whose pixels changed, a quad a layer) against the same frame rendered on
//   the CPU by a headless host (goal: at most 0.1 ms), and the bytes uploaded against the CPU
//   frame's damaged area × 4 (a moved label uploads nothing: far below 1×);
// - a touch mark following the mouse: from the finger's move to the composited frame finished
//   on the GPU, against the 16.7 ms frame budget (goal: within one frame), beside the game's
//   own frame alone. The GPU here is llvmpipe on the CPU's cores: the wall time counts its
//   rasterising of the full-screen quad, and whatever else the machine runs meanwhile; the
//   main thread's CPU time is reported beside it.

#include <tavrel_sdk/opengl_host.hpp>
#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include "bench_support.hpp"
#include "overlay/overlay_view.hpp"
#include "platform/sim_platform.hpp"
#include "support/egl_context.hpp"

#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using namespace tavrel;
using bench::threadCpuNanoseconds;

constexpr CGSize kScreen{1920.0, 1080.0};
constexpr double kFrameBudgetMs = 1000.0 / 60.0;

struct Game {
  std::shared_ptr<SimPlatform> sim;
  std::unique_ptr<testing::EglContext> context;
  std::shared_ptr<OpenGLHost> host;
  std::shared_ptr<UIWindow> screen;
  std::string error;
};

// One context and one session for the whole run: the singleton's overlay is made once.
Game& game() {
  static Game game = [] {
    Game made;
    made.sim = SimPlatform::create({.seed = 7});
    const auto documents = std::filesystem::temp_directory_path() / "tavrel-opengl-bench";
    std::filesystem::create_directories(documents);
    made.sim->setDocumentsDirectory(documents.string());
    Platform::install(made.sim);
    made.context = testing::EglContext::make(testing::EglContext::Kind::Core33, 1920, 1080, &made.error);
    if (!made.context) return made;
    made.host = std::make_shared<OpenGLHost>(eglGetProcAddress, kScreen, 1920, 1080);
    UIHost::install(made.host);
    made.screen = std::make_shared<UIWindow>();
    made.screen->setRootViewController(std::make_shared<UIViewController>());
    made.screen->makeKeyAndVisible();
    auto& sdk = TavrelSDK::sharedInstance();
    sdk.initialiseOverlay(made.screen->rootViewController(), std::string(24, 'T') + "BENCHMARK-USER-ID-000001");
    sdk.showWatermark();
    sdk.showTouches();
    made.sim->advance(0.1);  // the first watermark tick
    return made;
  }();
  return game;
}

void drawScene() {
  glClearColor(0.1f, 0.2f, 0.4f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT);
}

void BM_WatermarkMovedFrame(benchmark::State& state) {
  Game& g = game();
  if (!g.context) {
    state.SkipWithError(("no OpenGL: " + g.error).c_str());
    return;
  }
  // The baseline renders the same tree, not installed: the same change makes the same damage.
  HeadlessHost headless(kScreen, 1.0);
  headless.renderFrame();
  drawScene();
  g.host->composite();
  glFinish();
  OverlayView& overlay = *TavrelSDK::sharedInstance().overlayView();

  double compositeNs = 0.0;
  double headlessNs = 0.0;
  double damagedBytes = 0.0;
  const std::uint64_t uploadedBefore = g.host->bytesUploaded();
  for (auto _ : state) {
    overlay.timerFired(nullptr);  // the watermark moves, nothing else
    double start = threadCpuNanoseconds();
    const UIFrame& frame = headless.renderFrame();
    headlessNs += threadCpuNanoseconds() - start;
    for (const PixelRect& r : frame.damage) damagedBytes += 4.0 * r.width * r.height;
    drawScene();
    start = threadCpuNanoseconds();
    g.host->composite();
    compositeNs += threadCpuNanoseconds() - start;
    glFinish();  // llvmpipe's threads draw it; the next frame starts from an idle GPU
  }
  const auto frames = static_cast<double>(state.iterations());
  const double uploaded = static_cast<double>(g.host->bytesUploaded() - uploadedBefore);
  state.counters["composite_ms"] = compositeNs / frames / 1e6;
  state.counters["headless_ms"] = headlessNs / frames / 1e6;
  state.counters["x_headless"] = compositeNs / headlessNs;
  state.counters["damaged_bytes"] = damagedBytes / frames;
  state.counters["uploaded_x_damaged"] = uploaded / damagedBytes;
}
BENCHMARK(BM_WatermarkMovedFrame)->Unit(benchmark::kMillisecond)->Iterations(300);

// The mark under the finger is drawn where the finger is: the measured path really moves it.
bool markDrawnAt(int x, int y) {
  unsigned char pixel[4] = {};
  glReadPixels(x, 1080 - 1 - y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
  return pixel[0] > 100 && pixel[1] > 100;  // white at 2/3 over the dark blue
}

void BM_MarkFollowsMouse(benchmark::State& state) {
  Game& g = game();
  if (!g.context) {
    state.SkipWithError(("no OpenGL: " + g.error).c_str());
    return;
  }
  g.host->fingersDown({{0, CGPointMake(100, 300)}});
  g.host->fingersMoved({{0, CGPointMake(400, 200)}});
  drawScene();
  g.host->composite();
  glFinish();
  if (!markDrawnAt(400, 200)) {
    g.host->fingersUp({{0, CGPointMake(400, 200)}});
    state.SkipWithError("the touch mark is not drawn under the finger");
    return;
  }
  double wallMs = 0.0;
  double cpuNs = 0.0;
  double x = 100;
  for (auto _ : state) {
    x = x == 100 ? 1600 : 100;
    const auto start = bench::Clock::now();
    const double cpuStart = threadCpuNanoseconds();
    g.host->fingersMoved({{0, CGPointMake(x, 300)}});
    drawScene();
    g.host->composite();
    cpuNs += threadCpuNanoseconds() - cpuStart;
    glFinish();
    wallMs += std::chrono::duration<double, std::milli>(bench::Clock::now() - start).count();
  }
  g.host->fingersUp({{0, CGPointMake(x, 300)}});

  double gameMs = 0.0;
  constexpr int kGameFrames = 100;
  for (int i = 0; i < kGameFrames; ++i) {
    const auto start = bench::Clock::now();
    drawScene();
    glFinish();
    gameMs += std::chrono::duration<double, std::milli>(bench::Clock::now() - start).count();
  }
  const double frame = wallMs / static_cast<double>(state.iterations());
  state.counters["event_to_drawn_ms"] = frame;
  state.counters["x_frame_budget"] = frame / kFrameBudgetMs;
  state.counters["main_thread_cpu_ms"] = cpuNs / static_cast<double>(state.iterations()) / 1e6;
  state.counters["game_frame_ms"] = gameMs / kGameFrames;
}
BENCHMARK(BM_MarkFollowsMouse)->Unit(benchmark::kMillisecond)->Iterations(200);

}  // namespace
