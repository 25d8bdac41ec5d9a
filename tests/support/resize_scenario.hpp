#pragma once

// A gated session whose screen changes size, the same for every host (each host test says how
// its host takes a new size and shows a frame), played through the host's own input members:
// with the login page up (laid out again, the focused field keeps its text, Login tapped at its
// new place logs in) and in play (overlay, watermark copies and a finger's mark inside the new
// screen), each first frame after the change drawn whole at the new size.

#include <tavrel_sdk/ui.hpp>

#include "platform/sim_platform.hpp"

#include <functional>

namespace tavrel::testing {

struct ScreenChange {
  CGSize size;
  double scale = 1.0;
};

struct ResizingHost {
  // Makes the installed host take the new size (its own resize call or window event).
  std::function<void(ScreenChange)> resize;
  // The host's frame as a game shows it (composite, record a frame); none for a headless host,
  // whose first frame after the change is then checked to be drawn whole.
  std::function<void()> show;
};

// Runs the session on the installed host (a key window of its own, the mock service over HTTPS,
// a token it refuses): resized to `withPage` while the page is up, then to `inPlay` after the
// login. Failures are reported as the test's.
void resizeThroughLoginAndPlay(SimPlatform& sim, const ResizingHost& host, ScreenChange withPage, ScreenChange inPlay);

}  // namespace tavrel::testing
