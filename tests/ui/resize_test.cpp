#include <tavrel_sdk/tavrel.h>

#include "support/resize_scenario.hpp"
#include "support/sandbox.hpp"

namespace tavrel {
namespace {

class ResizeTest : public testing::SimulatedSession {};

TEST_F(ResizeTest, PageOverlayAndWatermarkFollowEveryChangeOfTheScreen) {
  struct Case {
    const char* what;
    bool fromC;
    testing::ScreenChange start, withPage, inPlay;
  };
  const Case cases[] = {
      {"a window shrunk, then grown", false, {{800, 600}}, {{560, 420}}, {{1024, 768}}},
      {"a phone turned, then a HiDPI screen", false, {{390, 844}, 3}, {{844, 390}, 3}, {{844, 390}, 2}},
      {"from C, a fraction of a point", true, {{800, 600}}, {{640.5, 480}, 2}, {{300, 500}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    testing::resetSessionGlobals();
    auto headless = std::make_shared<HeadlessHost>(c.start.size, c.start.scale);
    UIHost::install(headless);
    tavrel_host* handle = hostForC(headless);
    testing::ResizingHost host{[&](testing::ScreenChange to) {
                                 if (!c.fromC) return headless->resize(to.size, to.scale);
                                 EXPECT_EQ(tavrel_host_resize(handle, to.size.width, to.size.height, to.scale), TAVREL_OK);
                               },
                               nullptr};
    testing::resizeThroughLoginAndPlay(sim(), host, c.withPage, c.inPlay);
    tavrel_host_free(handle);
  }
}

}  // namespace
}  // namespace tavrel
