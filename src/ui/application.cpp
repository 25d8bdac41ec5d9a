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
UIWindow::UIWindow(CGRect frame) : UIView(frame) {}
UIWindow::~UIWindow() = default;
void UIWindow::setRootViewController(std::shared_ptr<UIViewController> controller) {
  rootViewController_ = std::move(controller);
}
void UIWindow::makeKeyAndVisible() {}
bool UIWindow::isKeyWindow() const { return false; }
UIResponder* UIWindow::nextResponder() const { return &UIApplication::sharedApplication(); }
UIView* UIWindow::hitTest(CGPoint point, const UIEvent* event) { return UIView::hitTest(point, event); }

UIApplication& UIApplication::sharedApplication() {
  static UIApplication* application = new UIApplication;
  return *application;
}
UIResponder* UIApplication::nextResponder() const { return delegate_.get(); }

}  // namespace tavrel
