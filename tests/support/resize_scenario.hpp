#pragma once

// A gated session whose screen changes size, the same for every host: each host test says how
// its host takes a new size and how it shows a frame. The player's path is checked through the
// host's own input members: with the login page up (the page fills the new screen laid out by
// its own rules, the focused field keeps its text, the Login button is tapped at its new place
// and the login succeeds against the real service) and during play (the overlay covers the new
// screen, the watermark's copies lie inside it from the next tick, a finger's mark lands under
// it), each first frame after the change drawn whole at the new size.

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
