// The LÖVE example (examples/love_game, through the Lua binding) as a shipped game folder with
// the installed library beside it, in a real window under Xvfb, against tavrel serve with a token
// it refuses. Real X input (xdotool) logs in through the page and holds a finger on the scene.
// The screenshots stay in the build tree (love_window/*.png) to be looked at.

#include "support/sandbox.hpp"
#include "support/window_session.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using namespace tavrel::testing;

bool isGround(std::uint32_t p) { return p == 0x1e5a32; }  // the scene's hills, (30, 90, 50)

TEST(LoveWindow, theRefusedPlayersPageGoesWithTheLoginAndTheOverlayLiesOverTheScene) {
  TemporaryDirectory work;
  const std::string dir = work.path();
  const std::string shots = TAVREL_LOVE_TEST_OUT;
  std::filesystem::create_directories(shots);
  const ExampleSession session = startExampleSession("love_game", dir);
  ASSERT_EQ(session.error, "");
  const std::string& log = session.log;
  unsetenv("TAVREL_SDK_LIB");  // the game finds the library beside its files
  if (std::getenv("XDG_RUNTIME_DIR") == nullptr) setenv("XDG_RUNTIME_DIR", dir.c_str(), 1);
  Background game({"love", session.game, kRefusedToken, session.launchUrl}, dir + "/game.log");

  const auto page = waitForLoginPage(session.treeFile);
  ASSERT_TRUE(page) << readFile(dir + "/game.log") << readFile(session.treeFile);
  const auto window = findWindow("love_game");
  ASSERT_TRUE(window);
  Shot shot{nullptr, *window};
  const Box& login = page->login;
  const auto shows = [&](const std::string& name, const std::function<bool()>& pass) {
    return waitUntil([&] { return shot.take(shots + "/" + name, log) && pass(); }, 10.0);
  };
  const int bottom = window->height;

  // The page stands over the whole scene: its orange button, none of the hills.
  EXPECT_TRUE(shows("page.png", [&] {
    return shot.count(isLoginOrange, login.midY(), login.midY() + 1, login.x + 4, login.x + 5) == 1 &&
           shot.count(isGround, bottom * 4 / 5, bottom) == 0;
  }));
  ASSERT_TRUE(typeLogin(*window, *page, log)) << readFile(log);
  ASSERT_TRUE(click(*window, login, log));
  ASSERT_TRUE(waitForPageGone(session.treeFile)) << readFile(dir + "/serve.log");
  EXPECT_TRUE(waitUntil([&] { return readFile(dir + "/game.log").find("the session may go on") != std::string::npos; }))
      << readFile(dir + "/game.log");

  // The scene shows again, under the watermark's white text (the scene has no white).
  EXPECT_TRUE(shows("played.png", [&] {
    return shot.count(isGround, bottom * 4 / 5, bottom) > window->width * bottom / 10 &&
           shot.count(isWhite, 0, bottom) > 40;
  }));

  // A finger held on the hills: its mark (white at 2/3) follows the mouse.
  const auto marked = [&](int x, int y) { return (shot.at(x, y) >> 16) > 150; };
  ASSERT_TRUE(run("xdotool mousemove --window " + window->id + " 280 510 mousedown 1 mousemove --window " +
                      window->id + " 300 520", log));
  EXPECT_TRUE(shows("finger.png", [&] { return marked(300, 520); }));
  ASSERT_TRUE(run("xdotool mousemove --window " + window->id + " 520 540", log));
  EXPECT_TRUE(shows("moved.png", [&] { return marked(520, 540) && isGround(shot.at(300, 520)); }));
  run("xdotool mouseup 1", log);
  EXPECT_TRUE(game.running());
}

}  // namespace
