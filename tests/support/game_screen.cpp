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

void SimulatedGame::TearDown() {
  if (auto* responder = UIResponder::currentFirstResponder()) responder->resignFirstResponder();
  game_.reset();
  window_.reset();
  // Views made by the test are gone before the platform their timers ran on.
  SimulatedSession::TearDown();
}

}  // namespace tavrel::testing
