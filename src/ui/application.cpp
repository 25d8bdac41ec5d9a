#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/host.hpp>

namespace tavrel {

UIScreen& UIScreen::mainScreen() {
  static UIScreen screen;
  return screen;
}

CGRect UIScreen::bounds() const { return {{}, UIHost::current().screenSize()}; }

double UIScreen::scale() const { return UIHost::current().screenScale(); }

UIWindow::UIWindow() : UIWindow(UIScreen::mainScreen().bounds()) {}

UIWindow::UIWindow(CGRect frame) : UIView(frame) { window_ = this; }

UIWindow::~UIWindow() = default;

void UIWindow::setRootViewController(std::shared_ptr<UIViewController> controller) {
  if (controller == rootViewController_) return;
  if (rootViewController_ && rootViewController_->isViewLoaded()) {
    const auto oldView = rootViewController_->view();
    if (oldView->superview() == this) oldView->removeFromSuperview();
  }
  rootViewController_ = std::move(controller);
  if (!rootViewController_) return;
  const auto view = rootViewController_->view();
  view->setFrame(bounds());
  // Beneath whatever the window already shows: presented controllers stay in front.
  insertSubview(view, 0);
}

void UIWindow::makeKeyAndVisible() {
  setHidden(false);
  auto self = weak_from_this().lock();
  UIApplication::sharedApplication().keyWindow_ = std::static_pointer_cast<UIWindow>(self);
}

bool UIWindow::isKeyWindow() const { return UIApplication::sharedApplication().keyWindow_.lock().get() == this; }

UIResponder* UIWindow::nextResponder() const { return &UIApplication::sharedApplication(); }

UIView* UIWindow::hitTest(CGPoint point, const UIEvent* event) {
  if (isHidden() || alpha() <= 0.01 || !isUserInteractionEnabled() || !pointInside(point, event)) return nullptr;
  // The frontmost presented controller takes every touch, also where its views take none.
  if (UIView* presented = topPresentedView()) return presented->hitTest(presented->pointFromSuperview(point), event);
  if (rootViewController_ && rootViewController_->isViewLoaded()) {
    const auto& view = rootViewController_->view();
    if (view->superview() == this) return view->hitTest(view->pointFromSuperview(point), event);
  }
  return UIView::hitTest(point, event);
}

void UIWindow::layoutSubviews() {
  // On a copy: a view's layout may change what the window holds.
  const auto subviews = this->subviews();
  for (const auto& view : subviews) {
    if (UIViewController* controller = view->viewController()) controller->followWindow(bounds());
  }
}

UIView* UIWindow::topPresentedView() const {
  for (auto it = subviews().rbegin(); it != subviews().rend(); ++it) {
    const UIViewController* controller = (*it)->viewController();
    if (controller && controller->presentingViewController()) return it->get();
  }
  return nullptr;
}

UIApplication& UIApplication::sharedApplication() {
  // Never destroyed: the view tree it reaches must not be torn down among the static
  // destructors, after the platform it uses may be gone.
  static UIApplication* application = new UIApplication;
  return *application;
}

UIResponder* UIApplication::nextResponder() const { return delegate_.get(); }

}  // namespace tavrel
