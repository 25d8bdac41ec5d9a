// The Vulkan example game in a real window with lavapipe, under the validation layer.

#include "support/window_session.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tavrel::testing {
namespace {

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

}  // namespace
}  // namespace tavrel::testing
