#pragma once

// UIResponder, UITouch and UIEvent: the platform's touch delivery.
//
// The window hit-tests a finger when it goes down and keeps the view it found for the touch's
// whole life; one UITouch object stands for one finger from down to up. A responder's
// touches* handlers, unless overridden, hand the touches on to nextResponder(), so a view
// that does not handle touches passes them up the chain: view, superview, ..., the controller
// whose root view it is, that controller's presenter or its view's superview, window,
// application.
//
// Thread safety: main thread only, like every class of the toolkit.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

#include <memory>
#include <string_view>
#include <vector>

namespace tavrel {

class UIView;
class UIWindow;

enum class UITouchPhase { Began = 0, Moved = 1, Stationary = 2, Ended = 3, Cancelled = 4 };

class TAVREL_EXPORT UITouch {
 public:
  UITouch(int fingerId, CGPoint windowLocation, UIWindow* window, UIView* view, double timestamp);

  // The location in `view`'s coordinates; a null view means the window's.
  CGPoint locationInView(const UIView* view) const;
  CGPoint previousLocationInView(const UIView* view) const;
  // The view the touch began in; null when it began over no view that takes touches.
  UIView* view() const { return view_; }
  UIWindow* window() const { return window_; }
  UITouchPhase phase() const { return phase_; }
  double timestamp() const { return timestamp_; }
  // The host's identity of the finger (stable for the touch's life).
  int fingerId() const { return fingerId_; }

  // For the window's event delivery.
  void update(UITouchPhase phase, CGPoint windowLocation, double timestamp);
  void detachFromView() { view_ = nullptr; }

 private:
  int fingerId_;
  CGPoint location_;
  CGPoint previousLocation_;
  UIWindow* window_;
  UIView* view_;
  UITouchPhase phase_ = UITouchPhase::Began;
  double timestamp_;
};

// NSSet of UITouch: one entry per finger, order not meaningful.
using UITouchSet = std::vector<std::shared_ptr<UITouch>>;

class TAVREL_EXPORT UIEvent {
 public:
  UIEvent(UITouchSet allTouches, double timestamp) : allTouches_(std::move(allTouches)), timestamp_(timestamp) {}
  const UITouchSet& allTouches() const { return allTouches_; }
  UITouchSet touchesForView(const UIView* view) const;
  double timestamp() const { return timestamp_; }

 private:
  UITouchSet allTouches_;
  double timestamp_;
};

class TAVREL_EXPORT UIResponder : public std::enable_shared_from_this<UIResponder> {
 public:
  UIResponder() = default;
  virtual ~UIResponder();
  UIResponder(const UIResponder&) = delete;
  UIResponder& operator=(const UIResponder&) = delete;

  // Null at the end of the chain.
  virtual UIResponder* nextResponder() const { return nullptr; }

  // Each passes the touches on to nextResponder() unchanged.
  virtual void touchesBegan(const UITouchSet& touches, const UIEvent* event);
  virtual void touchesMoved(const UITouchSet& touches, const UIEvent* event);
  virtual void touchesEnded(const UITouchSet& touches, const UIEvent* event);
  virtual void touchesCancelled(const UITouchSet& touches, const UIEvent* event);

  // First responder: at most one in the application; the keyboard's input goes to it.
  // becomeFirstResponder() fails when a handler run by the old one's resignation gave the
  // focus to another responder: that one keeps it.
  virtual bool canBecomeFirstResponder() const { return false; }
  virtual bool canResignFirstResponder() const { return true; }
  virtual bool becomeFirstResponder();
  virtual bool resignFirstResponder();
  bool isFirstResponder() const;
  static UIResponder* currentFirstResponder();

  // Keyboard input for the first responder (UIKeyInput). Return arrives as insertText("\n").
  virtual void insertText(std::string_view /*text*/) {}
  virtual void deleteBackward() {}
};

}  // namespace tavrel
