// `--window`: frames shown in an SDL2 window through SdlHost, the window's events pumped after
// each frame. Built only where the SDL2 host is.

#ifdef TAVREL_HAVE_SDL2

#include "session_runner.hpp"

#include <tavrel_sdk/sdl2_host.hpp>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>

namespace tavrel::cli {

FrameTarget windowTarget() {
  // One window for the process; SDL is shut down when the last frame target goes.
  struct Window {
    SDL_Window* window = nullptr;
    SDL_Renderer* renderer = nullptr;
    std::shared_ptr<SdlHost> host;
    ~Window() {
      host.reset();
      if (renderer) SDL_DestroyRenderer(renderer);
      if (window) SDL_DestroyWindow(window);
      SDL_Quit();
    }
  };
  auto shared = std::make_shared<Window>();
  FrameTarget target;
  target.makeHost = [shared](CGSize screen, double) -> std::shared_ptr<UIHost> {
    if (SDL_Init(SDL_INIT_VIDEO) != 0) throw std::runtime_error(std::string("--window: ") + SDL_GetError());
    shared->window = SDL_CreateWindow("tavrel run", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                      static_cast<int>(std::lround(screen.width)),
                                      static_cast<int>(std::lround(screen.height)), SDL_WINDOW_ALLOW_HIGHDPI);
    if (!shared->window) throw std::runtime_error(std::string("--window: ") + SDL_GetError());
    shared->renderer = SDL_CreateRenderer(shared->window, -1, SDL_RENDERER_PRESENTVSYNC);
    if (!shared->renderer) throw std::runtime_error(std::string("--window: ") + SDL_GetError());
    shared->host = std::make_shared<SdlHost>(shared->window, shared->renderer);
    return shared->host;
  };
  target.afterFrame = [shared] {
    // The script plays the player: the window only shows, and closes.
    for (SDL_Event event; SDL_PollEvent(&event);) {
      if (event.type == SDL_QUIT) return false;
    }
    SDL_SetRenderDrawColor(shared->renderer, 0, 0, 0, 255);
    SDL_RenderClear(shared->renderer);
    shared->host->composite();
    SDL_RenderPresent(shared->renderer);
    return true;
  };
  return target;
}

}  // namespace tavrel::cli

#endif
