#pragma once

// A key window whose root view controller stands for the game's, drawn headless, and the resizes
// every host goes through.

#include <tavrel_sdk/ui.hpp>

#include "support/sandbox.hpp"

#include <array>
#include <functional>
#include <memory>

namespace tavrel::testing {

class SimulatedGame : public SimulatedSession {
 protected:
  void SetUp() override;
  void TearDown() override;
  // A new screen and a new game on it; the default is 390 × 844 points at scale 1.
  void useScreen(CGSize size, double scale = 1.0);
  // `host` installed, and a new game on its screen.
  void useHost(std::shared_ptr<UIHost> host);
  UIHost& host() { return UIHost::current(); }
  const std::shared_ptr<UIWindow>& window() const { return window_; }
  const std::shared_ptr<UIViewController>& game() const { return game_; }
  // A view of one colour on `to`, else on the game's own view.
  std::shared_ptr<UIView> addColouredView(CGRect frame, std::shared_ptr<UIColor> color, UIView* to = nullptr);

 private:
  std::shared_ptr<UIWindow> window_;
  std::shared_ptr<UIViewController> game_;
};

// A text field's delegate that counts the Return presses it is asked about.
struct ReturnCounter : UITextFieldDelegate {
  int returns = 0;
  bool textFieldShouldReturn(UITextField*) override { return ++returns > 0; }
};

// The straight colour {r, g, b, a} of the frame's pixel under a point of the screen.
std::array<int, 4> pixelAt(const UIFrame& frame, CGPoint point);

// The same for every host: each first frame after a change of size is drawn whole at the new size.
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
