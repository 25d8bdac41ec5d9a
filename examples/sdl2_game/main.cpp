// A small Linux game that runs its session under tavrel_sdk in an SDL2 window.
//
//   sdl2_game TOKEN LAUNCH_URL
//
// It integrates the library as the README's "Integrating" snippet says, draws its own scene
// with its own SDL_Renderer, lays the library's views over it each frame and forwards its
// events. Environment, for tests and local integration only (a mock service, `tavrel serve`):
// TAVREL_CA_FILE, TAVREL_SERVICE_URL, and TAVREL_TREE_FILE (the view tree, written each second).

#include <tavrel_sdk/sdl2_host.hpp>
#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include <SDL.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

namespace {

constexpr int kWidth = 800;
constexpr int kHeight = 600;

// Written whole then renamed, so that a reader never sees half a tree.
void writeViewTree(const std::string& path) {
  {
    std::ofstream out(path + ".tmp", std::ios::trunc);
    out << tavrel::dumpViewTree();
  }
  std::rename((path + ".tmp").c_str(), path.c_str());
}

// Night sky, hills and a hopping block: no white anywhere, so whatever is white on the screen
// is the library's.
void drawScene(SDL_Renderer* renderer, double seconds) {
  for (int band = 0; band < 12; ++band) {
    SDL_SetRenderDrawColor(renderer, 10 + band * 3, 20 + band * 5, 60 + band * 6, 255);
    const SDL_Rect rect{0, band * 40, kWidth, 40};
    SDL_RenderFillRect(renderer, &rect);
  }
  SDL_SetRenderDrawColor(renderer, 200, 170, 60, 255);  // the moon
  for (int dy = -40; dy <= 40; ++dy) {
    const int half = static_cast<int>(std::sqrt(40.0 * 40.0 - dy * dy));
    SDL_RenderDrawLine(renderer, 620 - half, 110 + dy, 620 + half, 110 + dy);
  }
  SDL_SetRenderDrawColor(renderer, 30, 90, 50, 255);
  const SDL_Rect ground{0, 480, kWidth, 120};
  SDL_RenderFillRect(renderer, &ground);
  const double x = std::fmod(seconds * 120.0, kWidth + 60.0) - 60.0;
  const double hop = std::fabs(std::sin(seconds * 3.0)) * 120.0;
  SDL_SetRenderDrawColor(renderer, 70, 190, 210, 255);
  const SDL_Rect player{static_cast<int>(x), static_cast<int>(420 - hop), 60, 60};
  SDL_RenderFillRect(renderer, &player);
}

}  // namespace

int main(int argc, char** argv) {
  if (SDL_Init(SDL_INIT_VIDEO) != 0) {
    std::fprintf(stderr, "sdl2_game: %s\n", SDL_GetError());
    return 1;
  }
  SDL_Window* window = SDL_CreateWindow("sdl2_game", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, kWidth,
                                        kHeight, SDL_WINDOW_SHOWN | SDL_WINDOW_RESIZABLE);
  SDL_Renderer* renderer = window ? SDL_CreateRenderer(window, -1, 0) : nullptr;
  if (renderer == nullptr) {
    std::fprintf(stderr, "sdl2_game: %s\n", SDL_GetError());
    return 1;
  }
  // The library's views are drawn in this window, before any of them is made; they follow its
  // size through the window events handed to the host.
  auto host = std::make_shared<tavrel::SdlHost>(window, renderer);
  tavrel::UIHost::install(host);

  // --- The README's "Integrating" snippet, with the test-only settings ---------------------
  auto& platform = tavrel::Platform::current();
  // The game's URL scheme: a login through the page names it.
  platform.setInfoDictionaryJson(R"({"CFBundleURLTypes": [{"CFBundleURLSchemes": ["sdl2game"]}]})");
  // Tests and local integration only: a mock service on 127.0.0.1 (tavrel serve).
  if (const char* caFile = std::getenv("TAVREL_CA_FILE")) platform.setTrustedCertificatesFile(caFile);
  if (const char* serviceUrl = std::getenv("TAVREL_SERVICE_URL")) platform.setServiceBaseUrlForTesting(serviceUrl);

  auto& sdk = tavrel::TavrelSDK::sharedInstance();
  const std::string token = argc > 1 ? argv[1] : "";      // from the companion app
  const std::string launchUrl = argc > 2 ? argv[2] : "";  // the URL the game was opened with

  auto screen = std::make_shared<tavrel::UIWindow>();  // the game's screen, kept while it runs
  screen->setRootViewController(std::make_shared<tavrel::UIViewController>());
  screen->makeKeyAndVisible();

  sdk.initialiseOverlay(screen->rootViewController(), token);  // 48 characters or more
  sdk.showWatermark();
  sdk.showTouches();
  std::atomic<bool> mayPlay{false};
  sdk.validate([&mayPlay](bool) { mayPlay = true; });  // called with yes only
  sdk.processUrlRequest(launchUrl);                     // each time the game is opened through a URL
  // -------------------------------------------------------------------------------------------

  const char* treeFile = std::getenv("TAVREL_TREE_FILE");
  const Uint64 start = SDL_GetTicks64();
  Uint64 lastTreeWrite = 0;
  bool announced = false;
  for (bool running = true; running;) {
    SDL_Event event;
    while (SDL_PollEvent(&event) != 0) {
      if (event.type == SDL_QUIT) running = false;
      if (host->handleEvent(event)) continue;  // the library's: a page or alert is up, or a field has the focus
      if (event.type == SDL_MOUSEBUTTONDOWN && mayPlay) {
        sdk.emitGameEvent(std::to_string(event.button.x) + "," + std::to_string(event.button.y), "jump");
      }
    }
    if (mayPlay && !announced) {
      announced = true;
      sdk.emitGameEvent("level-1", "start");  // during play, any thread
      std::puts("sdl2_game: the session may go on");
      std::fflush(stdout);
    }
    const Uint64 now = SDL_GetTicks64();
    drawScene(renderer, static_cast<double>(now - start) / 1000.0);
    host->composite();
    SDL_RenderPresent(renderer);
    if (treeFile != nullptr && now - lastTreeWrite >= 1000) {
      lastTreeWrite = now;
      writeViewTree(treeFile);
    }
    // The library's timers and main-queue work run on the thread that runs the main loop.
    platform.runMainLoopFor(1.0 / 60);
  }
  SDL_DestroyRenderer(renderer);
  SDL_DestroyWindow(window);
  SDL_Quit();
  return 0;
}
