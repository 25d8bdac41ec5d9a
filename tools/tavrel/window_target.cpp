// `--window`: frames shown in an SDL2 window (SdlSessionWindow), the window's events handed to
// the session after each frame, so that a player can take over from the script with mouse and
// keyboard. Built only where the SDL2 host is.

#ifdef TAVREL_HAVE_SDL2

#include "session_runner.hpp"

#include <tavrel_sdk/sdl2_host.hpp>

#include <memory>
#include <stdexcept>
#include <string>

namespace tavrel::cli {

FrameTarget windowTarget() {
  // One window for the process, closed when the last frame target goes.
  auto window = std::make_shared<std::unique_ptr<SdlSessionWindow>>();
  FrameTarget target;
  target.makeHost = [window](CGSize screen, double scale) -> std::shared_ptr<UIHost> {
    try {
      *window = std::make_unique<SdlSessionWindow>("tavrel run", screen, scale);
    } catch (const std::runtime_error& e) {
      throw std::runtime_error(std::string("--window: ") + e.what());
    }
    return (*window)->host();
  };
  target.afterFrame = [window] { return (*window)->showFrame(); };
  return target;
}

}  // namespace tavrel::cli

#endif
