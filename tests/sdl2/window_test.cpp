// The SDL2 example game in a real window: the login through the page, the watermark over the scene.

#include "support/window_session.hpp"

#include <cstdlib>

namespace tavrel::testing {
namespace {

TEST_F(ExampleWindowTest, sdl2GameLogsInAndShowsTheWatermarkOverItsScene) {
  setenv("SDL_VIDEODRIVER", "x11", 1);
  if (!launch("sdl2_game")) return;
  EXPECT_TRUE(shows("page.png", [&] { return loginButtonShown(); }));
  ASSERT_NO_FATAL_FAILURE(logIn());
  EXPECT_TRUE(watermarked());
  // White is the library's alone: the watermark's text. The ground shows through the overlay.
  EXPECT_TRUE(shows("played.png", [&] {
    return count(isLoginOrange) == 0 && count(isWhite) > 40 && count(isGround, 490) > window_.width * (window_.height - 490) / 2;
  }));
}

}  // namespace
}  // namespace tavrel::testing
