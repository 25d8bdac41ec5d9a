// On lavapipe, under the validation layer with synchronization checks, frames in flight overlapping.

#include <tavrel_sdk/tavrel_vulkan.h>
#include <tavrel_sdk/ui.hpp>
#include <tavrel_sdk/vulkan_host.hpp>

#include "support/blend_check.hpp"
#include "support/game_screen.hpp"
#include "vulkan/offscreen_game.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {
namespace {

using testing::OffscreenGame;

struct Case {
  std::uint32_t framesInFlight;
  bool dynamicRendering;
  bool throughC;  // tavrel_vulkan.h rather than VulkanHost
};

class VulkanHostTest : public testing::SimulatedSession, public ::testing::WithParamInterface<Case> {
 protected:
  static void SetUpTestSuite() {
    // The loader unloads the driver and the layer with the instance, and a leak checker could
    // then not name them in the leaks they leave behind (tests/lsan.supp).
    for (const char* library : {"libvulkan_lvp.so", "libVkLayer_khronos_validation.so"}) {
      dlopen(library, RTLD_NOW | RTLD_NODELETE);
    }
    validation_.emplace();  // the layer, loaded for good, reads its settings once
  }
  static void TearDownTestSuite() { validation_.reset(); }
  void SetUp() override {
    SimulatedSession::SetUp();
    std::string whyNot;
    game_ = OffscreenGame::create(
        {{640, 480}, GetParam().framesInFlight, GetParam().dynamicRendering, validation_->path()}, &whyNot);
    if (!game_) GTEST_SKIP() << whyNot;
    VulkanHostInfo info = game_->hostInfo();
    info.windowSize = CGSizeMake(320, 240);  // HiDPI: two pixels a point
    if (GetParam().throughC) {
      tavrel_vulkan_info c{};
      c.instance = info.instance;
      c.physical_device = info.physicalDevice;
      c.device = info.device;
      c.queue = info.queue;
      c.render_pass = info.renderPass;
      c.color_format = info.colorFormat;
      c.frames_in_flight = info.framesInFlight;
      c.get_instance_proc_addr = info.getInstanceProcAddr;
      c.framebuffer_width = info.extent.width;
      c.framebuffer_height = info.extent.height;
      c.window_width = 320;
      c.window_height = 240;
      ASSERT_EQ(tavrel_vulkan_host_new(&c, &handle_), TAVREL_OK);
      ASSERT_EQ(tavrel_install_host(handle_), TAVREL_OK);
      host_ = std::dynamic_pointer_cast<VulkanHost>(hostFromC(handle_));
    } else {
      host_ = std::make_shared<VulkanHost>(info);
      UIHost::install(host_);
    }
    screen_ = std::make_shared<UIWindow>();
    screen_->setRootViewController(std::make_shared<UIViewController>());
    screen_->makeKeyAndVisible();
    sdk().initialiseOverlay(screen_->rootViewController(), std::string(24, 'T') + "VULKAN-PLAYER-0000000001");
    sdk().showWatermark();
    sdk().showTouches();
    expected_.resize(GetParam().framesInFlight);
  }

  void TearDown() override {
    if (game_) {
      checkAll();
      UIHost::install(std::make_shared<HeadlessHost>(CGSizeMake(320, 240), 2.0));
      if (handle_ != nullptr) {
        EXPECT_EQ(tavrel_vulkan_shutdown(handle_), TAVREL_OK);
        tavrel_host_free(handle_);
      }
      host_->shutdown();
      host_.reset();
      game_->release();
      EXPECT_EQ(testing::readFile(validation_->path() + "/validation.log"), "");
    }
    screen_.reset();
    SimulatedSession::TearDown();
  }

  // One frame of the game with the overlay; what the toolkit drew is checked against the
  // read-back once this frame in flight comes round again.
  void frame() {
    const std::uint32_t next = frames_ % GetParam().framesInFlight;
    check(next);
    const std::uint32_t index = game_->frame(
        [&](VkCommandBuffer c, std::uint32_t i) {
          if (handle_ == nullptr) return host_->recordUpload(c, i);
          EXPECT_EQ(tavrel_vulkan_record_upload(handle_, c, i), TAVREL_OK);
        },
        [&](VkCommandBuffer c) {
          if (handle_ == nullptr) return host_->recordDraw(c);
          EXPECT_EQ(tavrel_vulkan_record_draw(handle_, c), TAVREL_OK);
        });
    ASSERT_EQ(index, next);
    const UIFrame& drawn = host_->renderFrame();  // nothing changed since the upload: its pixels
    ASSERT_TRUE(drawn.damage.empty());
    Expected& expected = expected_[index].emplace(Expected{frames_++, drawn.width, drawn.height, {}});
    for (int y = 0; y < drawn.height; ++y) {
      const auto* row = reinterpret_cast<const std::uint32_t*>(reinterpret_cast<const unsigned char*>(drawn.pixels) +
                                                               static_cast<std::size_t>(y) * drawn.stride);
      expected.pixels.insert(expected.pixels.end(), row, row + drawn.width);
    }
  }
  void frames(int count, double secondsBetween) {
    for (int i = 0; i < count; ++i) {
      sim().advance(secondsBetween);
      frame();
    }
  }

  void check(std::uint32_t index) {
    const std::optional<Expected> expected = std::exchange(expected_[index], std::nullopt);
    if (!expected) return;
    const auto& [number, width, height, pixels] = *expected;
    ASSERT_EQ(width, static_cast<int>(game_->extent().width));
    ASSERT_EQ(height, static_cast<int>(game_->extent().height));
    const std::uint32_t* got = game_->readBack(index);
    const std::vector<std::uint32_t> scene(pixels.size(), OffscreenGame::kScene);
    EXPECT_EQ(testing::blendMismatches(pixels.data(), width, scene.data(), got, width, width, height), "")
        << "frame " << number << " in flight " << index;
  }
  void checkAll() {
    for (std::uint32_t i = 0; i < expected_.size(); ++i) check(i);
  }

  void resize(CGSize size, VkExtent2D extent) {
    checkAll();
    game_->resize(extent);
    if (handle_ == nullptr) return host_->resize(size, extent);
    EXPECT_EQ(tavrel_vulkan_resize(handle_, size.width, size.height, extent.width, extent.height), TAVREL_OK);
  }

  struct Expected {
    int number, width, height;
    std::vector<std::uint32_t> pixels;
  };
  static inline std::optional<testing::TemporaryDirectory> validation_;
  std::unique_ptr<OffscreenGame> game_;
  std::shared_ptr<VulkanHost> host_;
  tavrel_host* handle_ = nullptr;
  std::shared_ptr<UIWindow> screen_;
  std::vector<std::optional<Expected>> expected_;
  int frames_ = 0;
};

TEST_P(VulkanHostTest, composesTheToolkitOverTheGameFrameAfterFrameCopyingOnlyWhatChanged) {
  frame();
  frames(3, 1.0 / 15);

  const std::uint64_t before = host_->bytesUploaded();
  frame();  // nothing changed: drawn again from the texture, nothing copied
  EXPECT_EQ(host_->bytesUploaded(), before);
  sim().advance(1.0 / 15);
  frame();
  const std::uint64_t tick = host_->bytesUploaded() - before;
  EXPECT_GT(tick, 0u);
  EXPECT_LT(tick, 640u * 480u * 4u / 4u) << "a watermark tick copies what it changed, not the frame";

  host_->fingersDown({{1, CGPointMake(40, 100)}});
  frame();
  for (int step = 1; step <= 3; ++step) {
    host_->fingersMoved({{1, CGPointMake(40 + 30 * step, 100 - 10 * step)}});
    frame();
  }
  host_->fingersUp({{1, CGPointMake(130, 70)}});
  frame();

  sdk().showLoginPage([](bool) {});
  frames(12, 1.0 / 30);
  EXPECT_TRUE(host_->isCovered());
  sdk().dismissLoginPage();
  frames(12, 1.0 / 30);
  EXPECT_FALSE(host_->isCovered());

  // Over a window one pixel wide or high.
  auto cover = std::make_shared<UIView>(CGRectMake(0, 0, 400, 400));
  cover->setBackgroundColor(UIColor::colorWithRed(1, 0, 0, 1));
  screen_->rootViewController()->view()->addSubview(cover);
  for (const VkExtent2D extent : {VkExtent2D{1, 240}, VkExtent2D{320, 1}}) {
    resize(CGSizeMake(extent.width, extent.height), extent);
    frame();
  }
}

TEST_P(VulkanHostTest, laysTheToolkitOutAgainForANewSwapchain) {
  testing::resetSessionGlobals();  // the scenario attaches its own overlay
  testing::ResizingHost resizing{[&](testing::ScreenChange to) {
                                   resize(to.size, {static_cast<std::uint32_t>(to.size.width * to.scale),
                                                    static_cast<std::uint32_t>(to.size.height * to.scale)});
                                 },
                                 [&] { frame(); }};
  testing::resizeThroughLoginAndPlay(sim(), resizing, {{400, 300}, 2}, {{300, 420}});
}

TEST_P(VulkanHostTest, refusesWhatItCannotUse) {
  if (handle_ == nullptr || GetParam().dynamicRendering) GTEST_SKIP() << "checked through C with a render pass";
  tavrel_vulkan_info empty{};
  tavrel_host* made = nullptr;
  EXPECT_EQ(tavrel_vulkan_host_new(&empty, &made), TAVREL_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(made, nullptr);
  const auto commands = reinterpret_cast<VkCommandBuffer>(&made);  // never used: refused first
  EXPECT_EQ(tavrel_vulkan_record_upload(handle_, commands, GetParam().framesInFlight), TAVREL_ERROR_OUT_OF_RANGE);
  tavrel_host* headless = nullptr;
  ASSERT_EQ(tavrel_host_new(320, 240, 1, nullptr, nullptr, &headless), TAVREL_OK);
  EXPECT_EQ(tavrel_vulkan_record_draw(headless, commands), TAVREL_ERROR_INVALID_ARGUMENT);
  tavrel_host_free(headless);

  // A render pass needs no colour format; dynamic rendering does.
  VulkanHostInfo info = game_->hostInfo();
  info.colorFormat = VK_FORMAT_UNDEFINED;
  EXPECT_NO_THROW(VulkanHost{info}.shutdown());
  info.renderPass = VK_NULL_HANDLE;
  EXPECT_THROW(VulkanHost{info}, std::invalid_argument);
}

const auto caseName = [](const auto& info) {
  return std::to_string(info.param.framesInFlight) + "InFlight" +
         (info.param.dynamicRendering ? "DynamicRendering" : "RenderPass") + (info.param.throughC ? "FromC" : "");
};
INSTANTIATE_TEST_SUITE_P(FramesInFlight, VulkanHostTest, ::testing::Values(Case{2, false, true}, Case{3, true, false}),
                         caseName);

}  // namespace
}  // namespace tavrel
