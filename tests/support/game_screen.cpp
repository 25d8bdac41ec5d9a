#include "support/game_screen.hpp"

namespace tavrel::testing {

void SimulatedGame::SetUp() {
  SimulatedSession::SetUp();
  useScreen({390, 844});
}

void SimulatedGame::useScreen(CGSize size, double scale) { useHost(std::make_shared<HeadlessHost>(size, scale)); }

void SimulatedGame::useHost(std::shared_ptr<UIHost> host) {
  if (auto* responder = UIResponder::currentFirstResponder()) responder->resignFirstResponder();
  UIHost::install(std::move(host));
  window_ = std::make_shared<UIWindow>();
  game_ = std::make_shared<UIViewController>();
  window_->setRootViewController(game_);
  window_->makeKeyAndVisible();
}

std::shared_ptr<UIView> SimulatedGame::addColouredView(CGRect frame, std::shared_ptr<UIColor> color, UIView* to) {
  auto view = std::make_shared<UIView>(frame);
  view->setBackgroundColor(std::move(color));
  (to ? *to : *game_->view()).addSubview(view);
  return view;
}

void SimulatedGame::TearDown() {
  if (auto* responder = UIResponder::currentFirstResponder()) responder->resignFirstResponder();
  game_.reset();
  window_.reset();
  // Views made by the test are gone before the platform their timers ran on.
  SimulatedSession::TearDown();
}

std::array<int, 4> pixelAt(const UIFrame& frame, CGPoint point) {
  const int x = static_cast<int>(point.x * frame.scale), y = static_cast<int>(point.y * frame.scale);
  const std::uint32_t p = frame.pixels[static_cast<std::ptrdiff_t>(y) * frame.stride / 4 + x];
  const int a = static_cast<int>(p >> 24);
  auto straight = [a](std::uint32_t c) { return a == 0 ? 0 : static_cast<int>((c * 255 + a / 2) / a); };
  return {straight((p >> 16) & 0xFF), straight((p >> 8) & 0xFF), straight(p & 0xFF), a};
}

}  // namespace tavrel::testing
