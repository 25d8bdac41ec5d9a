#pragma once

// The same for every host: each first frame after a change of size is drawn whole at the new size.

#include <tavrel_sdk/ui.hpp>

#include "platform/sim_platform.hpp"

#include <functional>

namespace tavrel::testing {

struct ScreenChange {
  CGSize size;
  double scale = 1.0;
};

struct ResizingHost {
  std::function<void(ScreenChange)> resize;  // the host's own resize call or window event
  // The host's frame as a game shows it; none for a headless host, whose first frame after the
  // change is then checked to be drawn whole.
  std::function<void()> show;
};

// Resized to `withPage` while the login page is up, then to `inPlay` after the login.
void resizeThroughLoginAndPlay(SimPlatform& sim, const ResizingHost& host, ScreenChange withPage, ScreenChange inPlay);

}  // namespace tavrel::testing
