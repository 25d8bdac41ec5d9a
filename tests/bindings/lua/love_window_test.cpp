// The LÖVE example (Lua binding) in a real window, with the installed library beside it.

#include "support/window_session.hpp"

#include <cstdlib>

namespace tavrel::testing {
namespace {

TEST_F(ExampleWindowTest, loveGameLogsInAndTheOverlayLiesOverTheScene) {
  unsetenv("TAVREL_SDK_LIB");  // the game finds the library beside its files
  if (!launch("love_game", {"love"})) return;
  const int hills = window_.height * 4 / 5;
  EXPECT_TRUE(shows("page.png", [&] { return loginButtonShown() && count(isGround, hills) == 0; }));
  ASSERT_NO_FATAL_FAILURE(logIn());
  EXPECT_TRUE(shows("played.png", [&] { return count(isGround, hills) > window_.width * window_.height / 10 && count(isWhite) > 40; }));

  ASSERT_TRUE(fingerDown({280, 510}, {300, 520}));
  ASSERT_TRUE(run("xdotool mousemove --window " + window_.id + " 520 540"));
  EXPECT_TRUE(shows("moved.png", [&] { return isMarked(shot_.at(520, 540)) && isGround(shot_.at(300, 520)); }));
  fingerUp();
}

}  // namespace
}  // namespace tavrel::testing
