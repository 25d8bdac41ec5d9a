#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/color.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include "overlay/overlay_view.hpp"

namespace tavrel {

namespace {

// The application's root view controller, or null wherever the chain stops early.
std::shared_ptr<UIViewController> applicationRootViewController() {
  const auto& delegate = UIApplication::sharedApplication().delegate();
  if (!delegate || !delegate->window()) return nullptr;
  return delegate->window()->rootViewController();
}

}  // namespace

std::shared_ptr<UIViewController> TavrelSDK::setViewController(std::shared_ptr<UIViewController> viewController) {
  setParentViewController(viewController ? std::move(viewController) : applicationRootViewController());
  return _parentViewController;
}

void TavrelSDK::showOverlay(std::shared_ptr<UIViewController> viewController) {
  if (_overlayView) return;
  const auto host = setViewController(std::move(viewController));
  auto overlay = std::make_shared<OverlayView>(UIScreen::mainScreen().bounds());
  setOverlayView(overlay);
  overlay->setMultipleTouchEnabled(true);
  // It covers the screen when the screen changes size (a window resized).
  overlay->setAutoresizingMask(UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight);
  overlay->setBackgroundColor(UIColor::blackColor()->colorWithAlphaComponent(0.0));
  // Without a controller yet the overlay is made and attached to nothing, for good: a later
  // call stops at the guard above.
  if (host) host->view()->addSubview(overlay);
}

void TavrelSDK::initialiseOverlay(std::shared_ptr<UIViewController> viewController,
                                  const std::optional<std::string>& token) {
  if (_overlayView) return;
  setAuthToken(token);
  showOverlay(std::move(viewController));
}

void TavrelSDK::showTouches() {
  if (_overlayView) _overlayView->showTouches();
}

void TavrelSDK::showWatermark() {
  if (_overlayView) _overlayView->showWatermark();
}

}  // namespace tavrel
