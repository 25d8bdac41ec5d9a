// The example Vulkan game (examples/vulkan_game: GLFW, a swapchain, VulkanHost, GlfwInput) in a
// real window under Xvfb with lavapipe, built against the installed package and run against the
// mock service (tavrel serve) with a token it refuses, under the validation layer. Real X input
// (xdotool) logs in through the page; the window is then resized, so the swapchain and the host
// follow. Checked from the view tree the game writes and from screenshots (ImageMagick's import),
// kept in the build tree (vulkan_window/*.png) to be looked at.

#include "support/sandbox.hpp"
#include "support/window_session.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using nlohmann::json;
using namespace tavrel::testing;

bool isGround(std::uint32_t rgb) { return rgb == 0x1e5a32; }  // the scene's (30, 90, 50)

TEST(VulkanWindow, aRefusedPlayerLogsInAndTheOverlayFollowsTheSwapchain) {
  TemporaryDirectory work;
  const std::string dir = work.path();
  const std::string shots = TAVREL_VULKAN_WINDOW_OUT;
  std::filesystem::create_directories(shots);

  const ExampleSession session = startExampleSession("vulkan_game", dir);
  if (session.noDisplay) GTEST_SKIP() << session.error;
  ASSERT_EQ(session.error, "");
  const std::string& log = session.log;
  // The validation layer in the game, by the loader's own switches: warnings and errors to a file.
  const std::string validation = dir + "/validation.log";
  std::ofstream(dir + "/vk_layer_settings.txt") << "khronos_validation.report_flags = error,warn\n"
                                                   "khronos_validation.debug_action = VK_DBG_LAYER_ACTION_LOG_MSG\n"
                                                   "khronos_validation.log_filename = " << validation << "\n";
  setenv("VK_INSTANCE_LAYERS", "VK_LAYER_KHRONOS_validation", 1);
  setenv("VK_LAYER_SETTINGS_PATH", dir.c_str(), 1);
  Background game({session.game, kRefusedToken, session.launchUrl}, dir + "/game.log");

  const auto page = waitForLoginPage(session.treeFile);
  ASSERT_TRUE(page) << readFile(dir + "/game.log") << readFile(session.treeFile);
  const Box& login = page->login;
  json tree;
  auto window = findWindow("vulkan_game");
  ASSERT_TRUE(window);
  Shot shot{nullptr, *window};
  // The X server shows a presented image a moment after the present.
  const auto shows = [&](const std::string& name, const std::function<bool()>& seen) {
    return waitUntil([&] { return shot.take(shots + "/" + name, log) && seen(); }, 10.0);
  };

  // The page over the game: its Login button, none of the scene's ground.
  EXPECT_TRUE(shows("page.png", [&] {
    return shot.count(isLoginOrange, login.midY(), login.midY() + 1, login.x + 4, login.x + 5) == 1 &&
           shot.count(isGround, 0, window->height) == 0;
  }));

  const auto at = [&](int px, int py) { return std::to_string(px) + " " + std::to_string(py); };
  ASSERT_TRUE(typeLogin(*window, *page, log) && click(*window, login, log)) << readFile(log);
  // The service knows only ann:secret-pw, so the typing arrived.
  ASSERT_TRUE(waitUntil([&] { return readFile(dir + "/game.log").find("the session may go on") != std::string::npos; }))
      << readFile(dir + "/game.log") << readFile(dir + "/serve.log");

  ASSERT_TRUE(waitForPageGone(session.treeFile));  // the page has slid away

  // A finger held on the scene: its mark, the watermark and the scene's ground.
  ASSERT_TRUE(run("xdotool mousemove --window " + window->id + " " + at(280, 300) + " mousedown 1 mousemove --window " +
                      window->id + " " + at(300, 320),
                  log));
  EXPECT_TRUE(waitUntil([&] {
    tree = readTree(session.treeFile);
    return find(tree["rootViewController"]["view"], [](const json& v) {
      return v.value("class", json()) == "TouchMark";
    }).has_value();
  }));
  EXPECT_TRUE(shows("played.png", [&] {
    return shot.count(isWhite, 0, window->height) > 40 && shot.count(isGround, 0, window->height) > 10000 &&
           (shot.at(300, 320) >> 16) > 150;  // the mark's white at 2/3 over the dark sky
  }));
  run("xdotool mouseup 1", log);

  // The window made smaller: a new swapchain, and the host's frame at its size.
  ASSERT_TRUE(run("xdotool windowsize --sync " + window->id + " 600 400", log)) << readFile(log);
  window = findWindow("vulkan_game");
  ASSERT_TRUE(window);
  EXPECT_EQ(window->width, 600);
  shot.window = *window;
  // A finger's mark where the finger is: the overlay lies over the new swapchain at its scale.
  ASSERT_TRUE(run("xdotool mousemove --window " + window->id + " " + at(100, 100) + " mousedown 1", log));
  EXPECT_TRUE(shows("resized.png", [&] {
    return shot.count(isGround, 0, window->height) > 5000 && (shot.at(100, 100) >> 16) > 150;
  }));
  run("xdotool mouseup 1", log);

  EXPECT_TRUE(game.running()) << readFile(dir + "/game.log");
  EXPECT_TRUE(std::filesystem::exists(validation)) << "the validation layer did not run in the game";
  EXPECT_EQ(readFile(validation), "");
}

}  // namespace
