// A finger's mark follows the mouse within one frame: from SdlHost::handleEvent() of a mouse
// motion, through the overlay moving the mark, to the composited frame being presented, as a
// ratio of the 16.7 ms frame budget. The baseline, measured in the same run, is the game's own
// frame alone (its scene drawn and presented). Runs in a real window where there is a display,
// else under SDL's offscreen video driver. Wall time is the latency a player sees; the main
// thread's CPU time is reported beside it, since on a shared machine the wall clock also counts
// other people's work (and the X server's).

#include <tavrel_sdk/sdl2_host.hpp>
#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include <benchmark/benchmark.h>

#include <SDL.h>

#include <time.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
constexpr double kFrameBudgetMs = 1000.0 / 60.0;
constexpr int kWidth = 800;
constexpr int kHeight = 600;

double threadCpuMs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Milliseconds of wall and main-thread CPU time per frame.
struct FrameCost {
  double wallMs = 0.0;
  double cpuMs = 0.0;
};

struct Game {
  SDL_Window* window = nullptr;
  SDL_Renderer* renderer = nullptr;
  std::shared_ptr<tavrel::SdlHost> host;
  std::shared_ptr<tavrel::UIWindow> screen;
  std::string error;
};

// One window and one session for the whole run: the singleton's overlay is made once.
Game& game() {
  static Game game = [] {
    Game made;
    if (std::getenv("DISPLAY") == nullptr) setenv("SDL_VIDEODRIVER", "offscreen", 0);
    const auto documents = std::filesystem::temp_directory_path() / "tavrel-sdl2-bench";
    std::filesystem::create_directories(documents);
    setenv("TAVREL_DOCUMENTS", documents.c_str(), 1);
    // Touches without a launch URL log each record as not configured: noise here.
    tavrel::Platform::current().setLogSink([](std::string_view) {});
    tavrel::Platform::current().setLogToStderr(false);
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
      made.error = SDL_GetError();
      return made;
    }
    made.window = SDL_CreateWindow("sdl2_bench", 0, 0, kWidth, kHeight, SDL_WINDOW_SHOWN);
    made.renderer = made.window ? SDL_CreateRenderer(made.window, -1, 0) : nullptr;
    if (made.renderer == nullptr) {
      made.error = SDL_GetError();
      return made;
    }
    made.host = std::make_shared<tavrel::SdlHost>(made.window, made.renderer);
    tavrel::UIHost::install(made.host);
    made.screen = std::make_shared<tavrel::UIWindow>();
    made.screen->setRootViewController(std::make_shared<tavrel::UIViewController>());
    made.screen->makeKeyAndVisible();
    auto& sdk = tavrel::TavrelSDK::sharedInstance();
    sdk.initialiseOverlay(made.screen->rootViewController(), std::string(24, 'T') + "BENCHMARK-USER-ID-000001");
    sdk.showTouches();
    sdk.showWatermark();
    tavrel::Platform::current().runMainLoopFor(0.1);  // the first watermark tick
    return made;
  }();
  return game;
}

void drawScene(SDL_Renderer* renderer) {
  SDL_SetRenderDrawColor(renderer, 20, 40, 80, 255);
  SDL_RenderClear(renderer);
  SDL_SetRenderDrawColor(renderer, 30, 90, 50, 255);
  const SDL_Rect ground{0, 480, kWidth, 120};
  SDL_RenderFillRect(renderer, &ground);
}

SDL_Event mouse(Uint32 type, int x, int y) {
  SDL_Event event{};
  event.type = type;
  if (type == SDL_MOUSEMOTION) {
    event.motion = {type, 0, SDL_GetWindowID(game().window), 0, SDL_BUTTON_LMASK, x, y, 0, 0};
  } else {
    event.button = {type, 0, SDL_GetWindowID(game().window), 0, SDL_BUTTON_LEFT,
                    static_cast<Uint8>(type == SDL_MOUSEBUTTONDOWN ? SDL_PRESSED : SDL_RELEASED), 1, 0, x, y};
  }
  return event;
}

// The mark under the pointer is lighter than the scene there: the measured path really moves it.
bool markDrawnAt(int x, int y) {
  Uint32 pixel = 0;
  const SDL_Rect at{x, y, 1, 1};
  if (SDL_RenderReadPixels(game().renderer, &at, SDL_PIXELFORMAT_ARGB8888, &pixel, 4) != 0) return false;
  return ((pixel >> 16) & 0xff) > 100 && ((pixel >> 8) & 0xff) > 100;
}

FrameCost gameFrame(int frames) {
  const auto start = Clock::now();
  const double cpuStart = threadCpuMs();
  for (int i = 0; i < frames; ++i) {
    drawScene(game().renderer);
    SDL_RenderPresent(game().renderer);
  }
  return {std::chrono::duration<double, std::milli>(Clock::now() - start).count() / frames,
          (threadCpuMs() - cpuStart) / frames};
}

void BM_MarkFollowsMouse(benchmark::State& state) {
  Game& g = game();
  if (!g.error.empty()) {
    state.SkipWithError(("no window: " + g.error).c_str());
    return;
  }
  g.host->handleEvent(mouse(SDL_MOUSEBUTTONDOWN, 100, 300));
  g.host->handleEvent(mouse(SDL_MOUSEMOTION, 400, 200));
  drawScene(g.renderer);
  g.host->composite();
  if (!markDrawnAt(400, 200)) {
    g.host->handleEvent(mouse(SDL_MOUSEBUTTONUP, 400, 200));
    state.SkipWithError("the touch mark is not drawn under the pointer");
    return;
  }
  SDL_RenderPresent(g.renderer);

  FrameCost total;
  int x = 100;
  for (auto _ : state) {
    x = x == 100 ? 600 : 100;
    const SDL_Event motion = mouse(SDL_MOUSEMOTION, x, 300);
    const auto start = Clock::now();
    const double cpuStart = threadCpuMs();
    g.host->handleEvent(motion);
    drawScene(g.renderer);
    g.host->composite();
    SDL_RenderPresent(g.renderer);
    total.cpuMs += threadCpuMs() - cpuStart;
    total.wallMs += std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  }
  g.host->handleEvent(mouse(SDL_MOUSEBUTTONUP, x, 300));

  const auto frames = static_cast<double>(state.iterations());
  const FrameCost frame{total.wallMs / frames, total.cpuMs / frames};
  const FrameCost baseline = gameFrame(200);
  SDL_RendererInfo info{};
  SDL_GetRendererInfo(g.renderer, &info);
  state.SetLabel(std::string(SDL_GetCurrentVideoDriver()) + "/" + info.name +
                 (g.host->blendsPremultiplied() ? ", premultiplied blend" : ", straight alpha on upload"));
  state.counters["event_to_present_ms"] = frame.wallMs;
  state.counters["x_frame_budget"] = frame.wallMs / kFrameBudgetMs;
  state.counters["cpu_x_frame_budget"] = frame.cpuMs / kFrameBudgetMs;
  state.counters["game_frame_ms"] = baseline.wallMs;
  state.counters["x_game_frame"] = frame.wallMs / baseline.wallMs;
  state.counters["cpu_x_game_frame"] = frame.cpuMs / baseline.cpuMs;
}
BENCHMARK(BM_MarkFollowsMouse)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
