// The example games in real windows under Xvfb, against the installed package: one test a game,
// each run on its own by the ctest entry of its folder.

#include "support/blend_check.hpp"
#include "support/window_session.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tavrel::testing {
namespace {

// The SDL2 example game in a real window: the login through the page, the watermark over the scene.
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

// A PAM file of 0xAARRGGBB pixels as the game writes them; empty when unreadable.
std::vector<std::uint32_t> readPam(const std::string& path, int width, int height) {
  std::ifstream in(path, std::ios::binary);
  for (std::string word; in >> word && word != "ENDHDR";) {}
  in.get();
  const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(in), {}};
  std::vector<std::uint32_t> argb;
  if (bytes.size() != static_cast<std::size_t>(width) * height * 4) return argb;
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    argb.push_back(std::uint32_t{bytes[i]} << 24 | std::uint32_t{bytes[i + 1]} << 16 | std::uint32_t{bytes[i + 2]} << 8 | bytes[i + 3]);
  }
  return argb;
}

// At each check the GLFW example game (in C) holds still and writes its pixels and the library's frame.
class GlfwWindow : public ExampleWindowTest {
 protected:
  std::string holdAndCompare(const std::string& png) {
    const std::string hold = work_.path() + "/hold";
    std::filesystem::remove(hold + "/held");
    std::ofstream(hold + "/hold").put('\n');
    if (!waitUntil([&] { return std::filesystem::exists(hold + "/held"); })) return "the game did not hold";
    frame_ = readPam(hold + "/frame.pam", window_.width, window_.height);
    const auto scene = readPam(hold + "/game.pam", window_.width, window_.height);
    std::string mismatch = "the frame or the game's pixels are not the window's size";
    if (frame_.empty() || scene.empty()) return mismatch;
    shows(png, [&] {
      std::vector<std::uint32_t> shown;
      for (int y = 0; y < window_.height; ++y) {
        for (int x = 0; x < window_.width; ++x) shown.push_back(shot_.at(x, y));
      }
      mismatch = blendMismatches(frame_.data(), window_.width, scene.data(), shown.data(), window_.width, window_.width,
                                 window_.height);
      return mismatch.empty();
    });
    std::filesystem::remove(hold + "/hold");
    return mismatch;
  }
  std::vector<std::uint32_t> frame_;
};

TEST_F(GlfwWindow, theLibrarysFrameIsBlendedOverTheGamesOwnPixelsThroughLoginResizeAndPlay) {
  std::filesystem::create_directories(work_.path() + "/hold");
  setenv("TAVREL_HOLD_DIR", (work_.path() + "/hold").c_str(), 1);
  if (!launch("glfw_game")) return;
  EXPECT_EQ(holdAndCompare("page.png"), "");
  EXPECT_TRUE(loginButtonShown());

  ASSERT_TRUE(resize(560, 420)) << logs();
  EXPECT_LT(login_.y + login_.height, 420);
  EXPECT_EQ(holdAndCompare("resized-page.png"), "");
  EXPECT_TRUE(loginButtonShown());
  ASSERT_NO_FATAL_FAILURE(logIn());
  EXPECT_TRUE(watermarked());

  // The watermark (opaque white text) and the mark (white at 2/3) under a finger on the ground.
  ASSERT_TRUE(fingerDown({196, 370}, {210, 380}));
  EXPECT_EQ(holdAndCompare("played.png"), "");
  fingerUp();
  EXPECT_GT(std::count_if(frame_.begin(), frame_.end(), [](std::uint32_t p) { return p >= 0xf0f0f0f0u; }), 40);
  EXPECT_NEAR(static_cast<int>(frame_[380 * 560 + 210] >> 24), 170, 2);
  EXPECT_TRUE(isMarked(shot_.at(210, 380)));
  EXPECT_GT(std::count(frame_.begin(), frame_.end(), 0u), 560 * 420 * 3 / 4);
}

// The Vulkan example game in a real window with lavapipe, under the validation layer.
TEST_F(ExampleWindowTest, vulkanGameLogsInAndTheOverlayFollowsTheSwapchain) {
  // The validation layer in the game, by the loader's own switches: warnings and errors to a file.
  const std::string validation = work_.path() + "/validation.log";
  std::ofstream(work_.path() + "/vk_layer_settings.txt") << "khronos_validation.report_flags = error,warn\n"
                                                            "khronos_validation.debug_action = VK_DBG_LAYER_ACTION_LOG_MSG\n"
                                                            "khronos_validation.log_filename = " << validation << "\n";
  setenv("VK_INSTANCE_LAYERS", "VK_LAYER_KHRONOS_validation", 1);
  setenv("VK_LAYER_SETTINGS_PATH", work_.path().c_str(), 1);
  if (!launch("vulkan_game")) return;
  EXPECT_TRUE(shows("page.png", [&] { return loginButtonShown() && count(isGround) == 0; }));
  ASSERT_NO_FATAL_FAILURE(logIn());

  ASSERT_TRUE(fingerDown({280, 300}, {300, 320}));
  EXPECT_TRUE(shows("played.png", [&] { return count(isWhite) > 40 && count(isGround) > 10000 && isMarked(shot_.at(300, 320)); }));
  fingerUp();

  ASSERT_TRUE(resize(600, 400));
  ASSERT_TRUE(fingerDown({100, 100}, {100, 100}));
  EXPECT_TRUE(shows("resized.png", [&] { return count(isGround) > 5000 && isMarked(shot_.at(100, 100)); }));
  fingerUp();
  EXPECT_TRUE(std::filesystem::exists(validation)) << "the validation layer did not run in the game";
  EXPECT_EQ(readFile(validation), "");
}

// The LÖVE example (Lua binding) in a real window, with the installed library beside it.
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

TEST_F(ExampleWindowTest, pygameGameLogsInAndRecordsThePlay) {
  // Alone on its X server; xdotool does not read the title SDL sets, but reads the class.
  if (!launch("pygame_game", {"/usr/bin/python3", sourcePath("examples/pygame_game/main.py")}, false,
               "--classname '^main.py$'")) {
    return;
  }
  EXPECT_TRUE(shows("page.png", [&] { return loginButtonShown() && count(isGround) == 0; }));
  ASSERT_NO_FATAL_FAILURE(logIn());
  ASSERT_TRUE(fingerDown({280, 510}, {300, 520}));
  EXPECT_TRUE(shows("played.png", [&] { return isMarked(shot_.at(300, 520)) && count(isWhite) > 10 && count(isGround) > 80000; }));
  fingerUp();

  // The game's events (its own "jump" for the press) and the finger's records, in their files.
  const auto recorded = [&] {
    std::string events;
    bool touches = false;
    for (const auto& file : std::filesystem::directory_iterator(work_.path() + "/documents")) {
      const std::string content = readFile(file.path());
      touches = touches || (content.starts_with("INP\x02") && content.size() > 4);
      events += content;
    }
    return touches && events.find("start") != std::string::npos && events.find("jump") != std::string::npos;
  };
  EXPECT_TRUE(waitUntil(recorded)) << logs();
}

}  // namespace
}  // namespace tavrel::testing
