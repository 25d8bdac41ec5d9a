// The library in a real window, as a player meets it on Linux: the package installed into a
// scratch prefix, the example game built against it, the mock service (tavrel serve), an X
// server (Xvfb), and the game started with a token the service refuses. Real X input (xdotool)
// logs in through the page; screenshots (ImageMagick's import) and the view tree the game
// writes each second show the page go and the watermark drawn over the game's own scene.
// The screenshots stay in the build tree (sdl2_window/*.png) to be looked at.

#include "support/sandbox.hpp"
#include "support/window_session.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using nlohmann::json;
using namespace tavrel::testing;

TEST(Sdl2Window, aRefusedPlayerLogsInThroughThePageAndTheWatermarkShowsOverTheGame) {
  TemporaryDirectory work;
  const std::string dir = work.path();
  const std::string shots = TAVREL_SDL2_TEST_OUT;
  std::filesystem::create_directories(shots);

  auto x = startXServer(dir + "/xvfb.log");
  if (!x) GTEST_SKIP() << "no X server could be started (Xvfb, from scripts/setup): " << readFile(dir + "/xvfb.log");
  setenv("DISPLAY", x->display.c_str(), 1);  // for the game, xdotool and import
  const ExampleSession session = startExampleSession("sdl2_game", dir);
  ASSERT_EQ(session.error, "");
  const std::string& log = session.log;
  setenv("SDL_VIDEODRIVER", "x11", 1);
  Background game({session.game, kRefusedToken, session.launchUrl}, dir + "/game.log");

  // The refusal brings the page; it has slid in when its view is at the top.
  json tree;
  ASSERT_TRUE(waitUntil([&] {
    tree = readTree(session.treeFile);
    const json& page = presentedPage(tree);
    return page.is_object() && page["view"].is_object() && page["view"]["frame"][1] == 0;
  })) << readFile(dir + "/game.log");
  EXPECT_EQ(presentedPage(tree)["class"], "LoginViewController");
  const json page = presentedPage(tree)["view"];
  const auto username = find(page, fieldWithPlaceholder("Tavrel username"));
  const auto password = find(page, fieldWithPlaceholder("Password"));
  const auto login = find(page, isLoginButton);
  ASSERT_TRUE(username && password && login) << page.dump(1);

  const auto window = findWindow("sdl2_game");
  ASSERT_TRUE(window);
  Shot shot{nullptr, *window};
  const auto screenshot = [&](const std::string& name) { return shot.take(shots + "/" + name, log); };
  // The button shows where the tree puts it (beside its title, which is white).
  ASSERT_TRUE(waitUntil([&] {
    return screenshot("page.png") && shot.count(isLoginOrange, login->midY(), login->midY() + 1, login->x + 4, login->x + 5) == 1;
  }));

  const auto click = [&](const Box& at) {
    return run("xdotool mousemove --window " + window->id + " " + std::to_string(at.midX()) + " " +
                   std::to_string(at.midY()) + " click 1",
               log);
  };
  const std::string type = "xdotool type --delay 40 ";
  ASSERT_TRUE(run("xdotool windowfocus --sync " + window->id, log)) << readFile(log);
  ASSERT_TRUE(click(*username) && run(type + "ann", log) && click(*password) && run(type + "secret-pw", log))
      << readFile(log);
  screenshot("typed.png");

  // The login through the service (which knows only ann:secret-pw, so the typing arrived)
  // takes the page away; the game plays under the overlay.
  ASSERT_TRUE(click(*login));
  ASSERT_TRUE(waitUntil([&] {
    tree = readTree(session.treeFile);
    return tree.is_object() && presentedPage(tree).is_null();
  })) << readFile(dir + "/serve.log");
  ASSERT_TRUE(waitUntil([&] { return screenshot("played.png") && shot.count(isLoginOrange, 0, window->height) == 0; }));
  EXPECT_NE(readFile(dir + "/game.log").find("the session may go on"), std::string::npos);
  EXPECT_NE(readFile(dir + "/serve.log").find("POST /m/launch/project/auth/ios 200"), std::string::npos);

  // White is the library's alone: the watermark's text. The ground shows through the overlay.
  const std::string userId = kRefusedToken.substr(24, 24);
  const auto watermark = [&](const json& v) {
    const auto text = v.value("text", json());
    return text.is_string() && text.get<std::string>().ends_with("-" + userId);
  };
  EXPECT_TRUE(find(tree["rootViewController"]["view"], watermark)) << tree.dump(1);
  EXPECT_GT(shot.count(isWhite, 0, window->height), 40);
  const int ground = shot.count([](std::uint32_t p) { return p == 0x1e5a32; }, 490, window->height);  // (30, 90, 50)
  EXPECT_GT(ground, window->width * (window->height - 490) / 2);
  EXPECT_TRUE(game.running());
}

}  // namespace
