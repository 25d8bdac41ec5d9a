#pragma once

// UIScreen, UIWindow and UIApplication.
//
// Thread safety: main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/geometry.hpp>
#include <tavrel_sdk/ui/view.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include <memory>

namespace tavrel {

// The screen of the installed host (UIHost): its size in points and its scale.
class TAVREL_EXPORT UIScreen {
 public:
  static UIScreen& mainScreen();
  CGRect bounds() const;
  double scale() const;
};

// The root of a view tree: it delivers touches to the views they began in and is drawn by
// the host. Its root view controller's view fills it; what that controller presents lies
// above, in presentation order.
class TAVREL_EXPORT UIWindow : public UIView {
 public:
  // Default: the main screen's bounds.
  UIWindow();
  explicit UIWindow(CGRect frame);
  ~UIWindow() override;

  const std::shared_ptr<UIViewController>& rootViewController() const { return rootViewController_; }
  void setRootViewController(std::shared_ptr<UIViewController> controller);
  // Makes this the application's key window: the one the host draws and sends input to.
  // The window must be owned by a std::shared_ptr.
  void makeKeyAndVisible();
  bool isKeyWindow() const;

  // The application.
  UIResponder* nextResponder() const override;
  // Hit testing covers presented controllers first: touches never reach what they cover.
  // Only the frontmost presented controller's view is tested, else the root controller's.
  UIView* hitTest(CGPoint point, const UIEvent* event) override;
  // The frontmost presented controller's view in this window, or null when none covers it.
  UIView* topPresentedView() const;
  // A new size: the root controller's view and every presented controller's view take the
  // new bounds (a page sliding in or out goes on sliding within them).
  void layoutSubviews() override;

 private:
  std::shared_ptr<UIViewController> rootViewController_;
};

class TAVREL_EXPORT UIApplicationDelegate : public UIResponder {
 public:
  const std::shared_ptr<UIWindow>& window() const { return window_; }
  void setWindow(std::shared_ptr<UIWindow> window) { window_ = std::move(window); }

 private:
  std::shared_ptr<UIWindow> window_;
};

class TAVREL_EXPORT UIApplication : public UIResponder {
 public:
  static UIApplication& sharedApplication();

  const std::shared_ptr<UIApplicationDelegate>& delegate() const { return delegate_; }
  void setDelegate(std::shared_ptr<UIApplicationDelegate> delegate) { delegate_ = std::move(delegate); }
  // The window the host draws and sends input to; null before makeKeyAndVisible().
  std::shared_ptr<UIWindow> keyWindow() const { return keyWindow_.lock(); }

  // The delegate, when there is one.
  UIResponder* nextResponder() const override;

 private:
  friend class UIWindow;
  std::shared_ptr<UIApplicationDelegate> delegate_;
  std::weak_ptr<UIWindow> keyWindow_;
};

}  // namespace tavrel
