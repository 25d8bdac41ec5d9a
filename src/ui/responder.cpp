#include <tavrel_sdk/ui/responder.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <algorithm>

namespace tavrel {

namespace {

// Main thread only, like the rest of the toolkit. Cleared by the responder's destructor.
UIResponder* firstResponder = nullptr;

}  // namespace

UITouch::UITouch(int fingerId, CGPoint windowLocation, UIWindow* window, UIView* view, double timestamp)
    : fingerId_(fingerId),
      location_(windowLocation),
      previousLocation_(windowLocation),
      window_(window),
      view_(view),
      timestamp_(timestamp) {}

CGPoint UITouch::locationInView(const UIView* view) const {
  return view ? view->convertPointFromView(location_, nullptr) : location_;
}

CGPoint UITouch::previousLocationInView(const UIView* view) const {
  return view ? view->convertPointFromView(previousLocation_, nullptr) : previousLocation_;
}

void UITouch::update(UITouchPhase phase, CGPoint windowLocation, double timestamp) {
  phase_ = phase;
  previousLocation_ = location_;
  location_ = windowLocation;
  timestamp_ = timestamp;
}

UITouchSet UIEvent::touchesForView(const UIView* view) const {
  UITouchSet touches;
  std::copy_if(allTouches_.begin(), allTouches_.end(), std::back_inserter(touches),
               [view](const auto& touch) { return touch->view() == view; });
  return touches;
}

UIResponder::~UIResponder() {
  if (firstResponder == this) firstResponder = nullptr;
}

void UIResponder::touchesBegan(const UITouchSet& touches, const UIEvent* event) {
  if (UIResponder* next = nextResponder()) next->touchesBegan(touches, event);
}

void UIResponder::touchesMoved(const UITouchSet& touches, const UIEvent* event) {
  if (UIResponder* next = nextResponder()) next->touchesMoved(touches, event);
}

void UIResponder::touchesEnded(const UITouchSet& touches, const UIEvent* event) {
  if (UIResponder* next = nextResponder()) next->touchesEnded(touches, event);
}

void UIResponder::touchesCancelled(const UITouchSet& touches, const UIEvent* event) {
  if (UIResponder* next = nextResponder()) next->touchesCancelled(touches, event);
}

bool UIResponder::becomeFirstResponder() {
  if (firstResponder == this) return true;
  if (!canBecomeFirstResponder()) return false;
  if (firstResponder && !firstResponder->resignFirstResponder()) return false;
  // A handler run by that resignation may have given the focus to another responder: it keeps
  // it, rather than holding on without knowing it lost it.
  if (firstResponder) return firstResponder == this;
  firstResponder = this;
  return true;
}

bool UIResponder::resignFirstResponder() {
  if (firstResponder != this) return true;
  if (!canResignFirstResponder()) return false;
  firstResponder = nullptr;
  return true;
}

bool UIResponder::isFirstResponder() const { return firstResponder == this; }

UIResponder* UIResponder::currentFirstResponder() { return firstResponder; }

}  // namespace tavrel
