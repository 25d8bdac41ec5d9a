// tavrel.h in a C++ translation unit: a host written in C++ handed to C callers.
#include <tavrel_sdk/tavrel.h>
#include <tavrel_sdk/ui.hpp>
#include <tavrel_sdk/version.hpp>

#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <tuple>

namespace tavrel {
namespace {

// A host library's own class, as an OpenGL or Vulkan compositor would make one.
class CompositorHost final : public UIHost {
 public:
  CGSize screenSize() const override { return {320, 480}; }
  double screenScale() const override { return 2.0; }
  int presented = 0;

 protected:
  void presentFrame(const UIFrame&) override { ++presented; }
};

// No screen: a host is installed before any view is made.
class CInterface : public testing::SimulatedSession {
 protected:
  void TearDown() override {
    UIHost::install(nullptr);
    SimulatedSession::TearDown();
  }
};

TEST_F(CInterface, AHostWrittenInCxxServesEveryHostCallAndComesBackAsItself) {
  auto compositor = std::make_shared<CompositorHost>();
  tavrel_host* handle = hostForC(compositor);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(hostForC(nullptr), nullptr);
  EXPECT_EQ(std::dynamic_pointer_cast<CompositorHost>(hostFromC(handle)), compositor);

  double width = 0, height = 0, scale = 0;
  ASSERT_EQ(tavrel_host_screen_size(handle, &width, &height, &scale), TAVREL_OK);
  EXPECT_EQ(std::tuple(width, height, scale), std::tuple(320, 480, 2.0));
  tavrel_frame frame{};
  ASSERT_EQ(tavrel_host_render_frame(handle, &frame), TAVREL_OK);
  ASSERT_EQ(frame.damage_count, 1u) << "the first frame is drawn whole";
  EXPECT_EQ(std::tuple(compositor->presented, frame.width, frame.damage[0].width), std::tuple(1, 640, 640));

  ASSERT_EQ(tavrel_install_host(handle), TAVREL_OK);
  tavrel_host_free(handle);
  EXPECT_EQ(&UIHost::current(), compositor.get()) << "the library keeps its own reference";
  tavrel_host* current = nullptr;
  ASSERT_EQ(tavrel_host_current(&current), TAVREL_OK);
  EXPECT_EQ(hostFromC(current), compositor);
  tavrel_host_free(current);
  EXPECT_NE(tavrel_sdkVersionNumber, 0.0);
}

}  // namespace
}  // namespace tavrel
