// The example game in C (examples/glfw_game: GLFW, OpenGL 3.3, the library through its C
// interface) in a real window under Xvfb with Mesa's software OpenGL, built against the
// installed package and run against the mock service (tavrel serve) with a token it refuses.
// Real X input (xdotool) shrinks the window under the page and logs in through it. At four moments the game holds still and
// writes its own pixels and the library's frame; the screenshot (ImageMagick's import) must
// then be that frame blended over those pixels, within 2 levels, and the game's pixels as
// drawn wherever the frame is transparent. The screenshots stay in the build tree
// (glfw_window/*.png) to be looked at.

#include "support/blend_check.hpp"
#include "support/sandbox.hpp"
#include "support/window_session.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using namespace tavrel::testing;

// A PAM file of 0xAARRGGBB pixels as the game writes them; empty when unreadable.
struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> argb;
};

Pixels readPam(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string word;
  Pixels pixels;
  while (in >> word && word != "ENDHDR") {
    if (word == "WIDTH") in >> pixels.width;
    if (word == "HEIGHT") in >> pixels.height;
  }
  in.get();
  const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(in), {}};
  if (pixels.width <= 0 || bytes.size() != static_cast<std::size_t>(pixels.width) * pixels.height * 4) return {};
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    pixels.argb.push_back(std::uint32_t{bytes[i]} << 24 | std::uint32_t{bytes[i + 1]} << 16 |
                          std::uint32_t{bytes[i + 2]} << 8 | bytes[i + 3]);
  }
  return pixels;
}

TEST(GlfwWindow, aRefusedPlayerLogsInAndTheLibrarysFrameIsBlendedOverTheGamesOwnPixels) {
  TemporaryDirectory work;
  const std::string dir = work.path();
  const std::string shots = TAVREL_GLFW_TEST_OUT;
  std::filesystem::create_directories(shots);

  const ExampleSession session = startExampleSession("glfw_game", dir);
  if (session.noDisplay) GTEST_SKIP() << session.error;
  ASSERT_EQ(session.error, "");
  const std::string& log = session.log;
  const std::string hold = dir + "/hold";
  std::filesystem::create_directories(hold);
  setenv("TAVREL_HOLD_DIR", hold.c_str(), 1);
  if (std::getenv("XDG_RUNTIME_DIR") == nullptr) setenv("XDG_RUNTIME_DIR", dir.c_str(), 1);  // else Mesa complains
  Background game({session.game, kRefusedToken, session.launchUrl}, dir + "/game.log");

  // The refusal brings the page.
  auto page = waitForLoginPage(session.treeFile);
  ASSERT_TRUE(page) << readFile(dir + "/game.log") << readFile(session.treeFile);
  Box login = page->login;
  json tree;
  auto window = findWindow("glfw_game");
  ASSERT_TRUE(window);
  Shot shot{nullptr, *window};

  // Has the game hold still, then compares the screen with its pixels and the library's frame.
  Pixels frame;
  const auto holdAndCompare = [&](const std::string& name) -> std::string {
    std::filesystem::remove(hold + "/held");
    std::ofstream(hold + "/hold").put('\n');
    if (!waitUntil([&] { return std::filesystem::exists(hold + "/held"); })) return "the game did not hold";
    frame = readPam(hold + "/frame.pam");
    const Pixels scene = readPam(hold + "/game.pam");
    if (frame.width != window->width || frame.height != window->height || scene.width != frame.width ||
        scene.height != frame.height) {
      return "the frame or the game's pixels are not the window's size";
    }
    std::string mismatch;
    // The X server shows the swapped frame a moment after the swap.
    waitUntil(
        [&] {
          if (!shot.take(shots + "/" + name, log)) return false;
          std::vector<std::uint32_t> shown;
          for (int y = 0; y < window->height; ++y) {
            for (int x = 0; x < window->width; ++x) shown.push_back(shot.at(x, y));
          }
          mismatch = blendMismatches(frame.argb.data(), frame.width, scene.argb.data(), shown.data(), frame.width,
                                     frame.width, frame.height);
          return mismatch.empty();
        },
        5.0);
    return mismatch;
  };
  const auto release = [&] { std::filesystem::remove(hold + "/hold"); };
  const auto count = [&](auto pass) {
    int n = 0;
    for (std::uint32_t p : frame.argb) n += pass(p) ? 1 : 0;
    return n;
  };

  // The page over the game.
  EXPECT_EQ(holdAndCompare("page.png"), "");
  EXPECT_EQ(shot.count(isLoginOrange, login.midY(), login.midY() + 1, login.x + 4, login.x + 5), 1);
  release();

  // The player shrinks the window (leaving full screen, a tiling window manager): the page is
  // laid out again inside it, and the login below goes to its new places.
  ASSERT_TRUE(run("xdotool windowsize --sync " + window->id + " 560 420", log)) << readFile(log);
  window = findWindow("glfw_game");
  ASSERT_TRUE(window && window->width == 560 && window->height == 420);
  shot.window = *window;
  page = waitForLoginPage(session.treeFile, 560);
  ASSERT_TRUE(page) << readFile(session.treeFile);
  login = page->login;
  EXPECT_LT(login.y + login.height, 420) << "the button inside the window";
  EXPECT_EQ(holdAndCompare("resized-page.png"), "");
  EXPECT_EQ(shot.count(isLoginOrange, login.midY(), login.midY() + 1, login.x + 4, login.x + 5), 1);
  release();

  ASSERT_TRUE(typeLogin(*window, *page, log)) << readFile(log);
  EXPECT_EQ(holdAndCompare("typed.png"), "");
  release();
  // The login through the service (which knows only ann:secret-pw, so the typing arrived)
  // takes the page away; the game plays under the overlay.
  ASSERT_TRUE(click(*window, login, log));
  const auto played = waitForPageGone(session.treeFile);
  ASSERT_TRUE(played) << readFile(dir + "/serve.log");
  tree = *played;
  ASSERT_TRUE(waitUntil([&] { return readFile(dir + "/game.log").find("the session may go on") != std::string::npos; }))
      << readFile(dir + "/game.log");
  EXPECT_NE(readFile(dir + "/serve.log").find("POST /m/launch/project/auth/ios 200"), std::string::npos);
  const std::string userId = kRefusedToken.substr(24, 24);
  EXPECT_TRUE(find(tree["rootViewController"]["view"], [&](const json& v) {
    const auto text = v.value("text", json());
    return text.is_string() && text.get<std::string>().ends_with("-" + userId);
  })) << tree.dump(1);

  // A finger held on the scene's ground (the bottom fifth of the resized window): its mark and
  // the watermark over the moving scene.
  const int fingerX = 210;
  const int fingerY = 380;
  ASSERT_TRUE(run("xdotool mousemove --window " + window->id + " 196 370 mousedown 1 mousemove --window " +
                      window->id + " " + std::to_string(fingerX) + " " + std::to_string(fingerY),
                  log));
  waitUntil([&] {
    tree = readTree(session.treeFile);
    return find(tree["rootViewController"]["view"], [](const json& v) {
      return v.value("class", json()) == "TouchMark";
    }).has_value();
  }, 3.0);
  EXPECT_EQ(holdAndCompare("played.png"), "");
  run("xdotool mouseup 1", log);
  release();
  // The watermark: opaque white text; the mark: white at 2/3 under the finger.
  EXPECT_GT(count([](std::uint32_t p) { return p >= 0xf0f0f0f0u; }), 40);
  const std::uint32_t mark = frame.argb[static_cast<std::size_t>(fingerY) * frame.width + fingerX];
  EXPECT_NEAR(static_cast<int>(mark >> 24), 170, 2) << std::hex << mark;
  EXPECT_GT(shot.at(fingerX, fingerY) >> 16, 150u);  // white at 2/3 over the ground's red of 30
  EXPECT_GT(count([](std::uint32_t p) { return p == 0; }), window->width * window->height * 3 / 4);
  EXPECT_TRUE(game.running());
}

}  // namespace
