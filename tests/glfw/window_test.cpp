// At each check the C example game holds still and writes its pixels and the library's frame.

#include "support/blend_check.hpp"
#include "support/window_session.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tavrel::testing {
namespace {

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

}  // namespace
}  // namespace tavrel::testing
