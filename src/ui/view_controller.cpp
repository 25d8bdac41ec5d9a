#include <tavrel_sdk/ui/view_controller.hpp>

namespace tavrel {

struct UIViewController::Transition {};

UIViewController::UIViewController() = default;
UIViewController::~UIViewController() = default;
std::shared_ptr<UIView> UIViewController::view() { return view_; }
void UIViewController::setView(std::shared_ptr<UIView> view) { view_ = std::move(view); }
void UIViewController::loadView() {}
void UIViewController::presentViewController(std::shared_ptr<UIViewController>, bool, std::function<void()>) {}
void UIViewController::dismissViewControllerAnimated(bool, std::function<void()>) {}
bool UIViewController::isBeingPresented() const { return false; }
bool UIViewController::isBeingDismissed() const { return false; }
UIResponder* UIViewController::nextResponder() const { return nullptr; }

}  // namespace tavrel
