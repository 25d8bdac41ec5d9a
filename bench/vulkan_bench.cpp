// A frame of a Vulkan game in which only the watermark moved, 1920 × 1080 at scale 1, on a real
// device (lavapipe without a GPU; no validation layer). The baseline, measured in the same
// frames, is the toolkit's headless renderer drawing that frame (UIHost::renderFrame); the
// compositor's time is that render plus VulkanHost::recordUpload() (copying the damage into the
// frame's staging buffer and recording the copy and barriers) and recordDraw(), as main-thread
// CPU time (goal: at most 1.3×). Bytes copied per frame are set against the damaged area × 4
// (goal: at most 1.1×).

#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>
#include <tavrel_sdk/vulkan_host.hpp>

#include "bench_support.hpp"
#include "platform/sim_platform.hpp"
#include "vulkan/offscreen_game.hpp"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

using namespace tavrel;
using bench::threadCpuNanoseconds;

// One device and one session for the whole run: the singleton's overlay is made once.
struct Session {
  Session() {
    sim = SimPlatform::create({.seed = 7});
    const auto documents = std::filesystem::temp_directory_path() / "tavrel-vulkan-bench";
    std::filesystem::create_directories(documents);
    sim->setDocumentsDirectory(documents.string());
    Platform::install(sim);
    game = testing::OffscreenGame::create({{1920, 1080}, 2, false, ""}, &whyNot);
    if (!game) return;
    host = std::make_shared<VulkanHost>(game->hostInfo());
    UIHost::install(host);
    screen = std::make_shared<UIWindow>();
    screen->setRootViewController(std::make_shared<UIViewController>());
    screen->makeKeyAndVisible();
    auto& sdk = TavrelSDK::sharedInstance();
    sdk.initialiseOverlay(screen->rootViewController(), std::string(24, 'T') + "BENCHMARK-USER-ID-000001");
    sdk.showTouches();
    sdk.showWatermark();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  std::shared_ptr<SimPlatform> sim;
  std::unique_ptr<testing::OffscreenGame> game;
  std::shared_ptr<VulkanHost> host;
  std::shared_ptr<UIWindow> screen;
  std::string whyNot;

  // The installed host outlives this (it is the toolkit's): its Vulkan part goes before the device.
  ~Session() {
    if (!host) return;
    UIHost::install(std::make_shared<HeadlessHost>(host->screenSize(), 1.0));
    host->shutdown();
  }
};

// Main-thread CPU time and damaged pixels, summed over frames.
struct Costs {
  double renderNs = 0.0;
  double recordNs = 0.0;
  double damagedPixels = 0.0;
};

Session& session() {
  static Session made;
  return made;
}

void BM_WatermarkMovedFrame(benchmark::State& state) {
  Session& s = session();
  if (!s.game) {
    state.SkipWithError(s.whyNot.c_str());
    return;
  }
  const auto frame = [&](Costs& costs) {
    s.sim->advance(1.0 / 15);  // one watermark tick
    s.game->frame(
        [&](VkCommandBuffer commands, std::uint32_t index) {
          double start = threadCpuNanoseconds();
          const UIFrame& drawn = s.host->renderFrame();
          costs.renderNs += threadCpuNanoseconds() - start;
          for (const PixelRect& rect : drawn.damage) costs.damagedPixels += static_cast<double>(rect.width) * rect.height;
          start = threadCpuNanoseconds();
          s.host->recordUpload(commands, index);  // renders again, finds nothing new, copies
          costs.recordNs += threadCpuNanoseconds() - start;
        },
        [&](VkCommandBuffer commands) {
          const double start = threadCpuNanoseconds();
          s.host->recordDraw(commands);
          costs.recordNs += threadCpuNanoseconds() - start;
        });
  };
  Costs warmUp;  // the whole first frame; each frame in flight's staging buffer grown
  for (int i = 0; i < 4; ++i) frame(warmUp);

  Costs costs;
  const std::uint64_t bytesBefore = s.host->bytesUploaded();
  for (auto _ : state) frame(costs);
  s.game->waitIdle();

  const auto frames = static_cast<double>(state.iterations());
  const auto bytes = static_cast<double>(s.host->bytesUploaded() - bytesBefore);
  state.counters["headless_render_us"] = costs.renderNs / frames / 1e3;
  state.counters["compositor_us"] = (costs.renderNs + costs.recordNs) / frames / 1e3;
  state.counters["x_headless_render"] = (costs.renderNs + costs.recordNs) / costs.renderNs;
  state.counters["damaged_px"] = costs.damagedPixels / frames;
  state.counters["bytes_copied"] = bytes / frames;
  state.counters["x_damaged_bytes"] = bytes / (costs.damagedPixels * 4.0);
}
BENCHMARK(BM_WatermarkMovedFrame)->Iterations(200)->Unit(benchmark::kMillisecond);

}  // namespace
