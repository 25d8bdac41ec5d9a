#include <tavrel_sdk/ui/responder.hpp>
#include <tavrel_sdk/ui/view.hpp>

namespace tavrel {

UITouch::UITouch(int fingerId, CGPoint windowLocation, UIWindow* window, UIView* view, double timestamp)
    : fingerId_(fingerId), location_(windowLocation), previousLocation_(windowLocation), window_(window), view_(view),
      timestamp_(timestamp) {}
CGPoint UITouch::locationInView(const UIView*) const { return location_; }
CGPoint UITouch::previousLocationInView(const UIView*) const { return previousLocation_; }
void UITouch::update(UITouchPhase phase, CGPoint windowLocation, double timestamp) {
  phase_ = phase;
  previousLocation_ = location_;
  location_ = windowLocation;
  timestamp_ = timestamp;
}
UITouchSet UIEvent::touchesForView(const UIView*) const { return {}; }
UIResponder::~UIResponder() = default;
void UIResponder::touchesBegan(const UITouchSet&, const UIEvent*) {}
void UIResponder::touchesMoved(const UITouchSet&, const UIEvent*) {}
void UIResponder::touchesEnded(const UITouchSet&, const UIEvent*) {}
void UIResponder::touchesCancelled(const UITouchSet&, const UIEvent*) {}
bool UIResponder::becomeFirstResponder() { return false; }
bool UIResponder::resignFirstResponder() { return true; }
bool UIResponder::isFirstResponder() const { return false; }
UIResponder* UIResponder::currentFirstResponder() { return nullptr; }

}  // namespace tavrel
