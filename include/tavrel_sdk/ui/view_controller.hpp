#pragma once

// UIViewController with modal presentation, and UIAlertController.
//
// The view is made on first use: loadView(), then viewDidLoad(). Presenting covers the
// presenter's screen with the presented controller's view; touches cannot reach what a
// presented controller covers. A controller presents at most one other: a further
// presentation is refused with the platform's warning in the log and not shown.
// Animated transitions take the platform's time (a slide from below for a full-screen page,
// a fade for an alert), so virtual time drives them in the simulation: presentedViewController
// is set when a presentation starts and cleared when its dismissal ends, and completions run
// when the transition ends (without animation: on the main loop, just after the call).
// Controllers that present or are presented are owned by std::shared_ptr, and a presenter's
// view must be in a window; otherwise the presentation is refused with the platform's warning.
//
// Thread safety: main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/ui/responder.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {

enum class UIModalPresentationStyle { FullScreen = 0, OverFullScreen = 5 };

// Durations of the animated transitions, in seconds of the platform's clock.
inline constexpr double kPageTransitionDuration = 0.4;   // a full-screen page slides
inline constexpr double kAlertTransitionDuration = 0.3;  // an alert fades

class TAVREL_EXPORT UIViewController : public UIResponder {
 public:
  UIViewController();
  ~UIViewController() override;

  // Loads the view on first use.
  std::shared_ptr<UIView> view();
  bool isViewLoaded() const { return view_ != nullptr; }
  void setView(std::shared_ptr<UIView> view);
  // Makes a plain view with the main screen's bounds; a subclass may make its own instead.
  virtual void loadView();
  virtual void viewDidLoad() {}
  // Before the view lays out its subviews after its size changed (a window resized); nothing
  // by default.
  virtual void viewWillLayoutSubviews() {}

  UIModalPresentationStyle modalPresentationStyle() const { return modalPresentationStyle_; }
  void setModalPresentationStyle(UIModalPresentationStyle style) { modalPresentationStyle_ = style; }

  // Adds the presented view to the presenter's window, in front of everything, with the
  // screen's bounds. Refused (logged, not shown, completion not run) while this controller
  // presents another, also during that one's dismissal, and during its own dismissal.
  void presentViewController(std::shared_ptr<UIViewController> viewController, bool animated,
                             std::function<void()> completion);
  // On a presenter: dismisses what it presents, and at once whatever that presents in turn.
  // On a presented controller that presents nothing: forwarded to its presenter. A
  // presentation still under way ends at once first; a second dismissal while one is under
  // way is refused with the platform's warning.
  void dismissViewControllerAnimated(bool animated, std::function<void()> completion);
  std::shared_ptr<UIViewController> presentedViewController() const { return presented_; }
  std::shared_ptr<UIViewController> presentingViewController() const { return presenting_.lock(); }
  bool isBeingPresented() const;
  bool isBeingDismissed() const;

  // The presenter while presented; else the superview of the view.
  UIResponder* nextResponder() const override;

 private:
  friend class UIWindow;
  struct Transition;
  // The window took `bounds`: the view fills them, or a transition under way goes on in them.
  void followWindow(CGRect bounds);
  void startTransition(std::shared_ptr<Transition> transition);
  void stepTransition();
  void endTransition();
  // Takes down at once, with no transition or completion, what this controller presents.
  void tearDownPresentations();

  std::shared_ptr<UIView> view_;
  UIModalPresentationStyle modalPresentationStyle_ = UIModalPresentationStyle::FullScreen;
  std::shared_ptr<UIViewController> presented_;
  std::weak_ptr<UIViewController> presenting_;
  std::shared_ptr<Transition> transition_;  // the presented controller's transition under way
};

enum class UIAlertControllerStyle { ActionSheet = 0, Alert = 1 };
enum class UIAlertActionStyle { Default = 0, Cancel = 1, Destructive = 2 };

class TAVREL_EXPORT UIAlertAction {
 public:
  using Handler = std::function<void(UIAlertAction* action)>;
  UIAlertAction(std::optional<std::string> title, UIAlertActionStyle style, Handler handler);
  static std::shared_ptr<UIAlertAction> actionWithTitle(std::optional<std::string> title, UIAlertActionStyle style,
                                                        Handler handler);
  const std::optional<std::string>& title() const { return title_; }
  UIAlertActionStyle style() const { return style_; }
  const Handler& handler() const { return handler_; }

 private:
  std::optional<std::string> title_;
  UIAlertActionStyle style_;
  Handler handler_;
};

// Drawn as the platform's centred alert box over a dimmed screen; the dimmed screen takes
// every touch, so the buttons are the only way out. A tap on a button starts the alert's
// animated dismissal; the action's handler runs on the main thread when it has ended, so the
// alert is no longer its presenter's presentedViewController. Actions are added before the
// alert is presented. Both styles show as an alert.
class TAVREL_EXPORT UIAlertController : public UIViewController {
 public:
  UIAlertController(std::optional<std::string> title, std::optional<std::string> message,
                    UIAlertControllerStyle preferredStyle);
  static std::shared_ptr<UIAlertController> alertControllerWithTitle(std::optional<std::string> title,
                                                                     std::optional<std::string> message,
                                                                     UIAlertControllerStyle preferredStyle);
  void addAction(std::shared_ptr<UIAlertAction> action);
  const std::vector<std::shared_ptr<UIAlertAction>>& actions() const { return actions_; }
  const std::optional<std::string>& title() const { return title_; }
  const std::optional<std::string>& message() const { return message_; }
  UIAlertControllerStyle preferredStyle() const { return preferredStyle_; }

  void loadView() override;
  // The box stays in the middle of a screen that changed size.
  void viewWillLayoutSubviews() override;

 private:
  void actionTapped(const std::shared_ptr<UIAlertAction>& action);

  std::optional<std::string> title_;
  std::optional<std::string> message_;
  UIAlertControllerStyle preferredStyle_;
  std::vector<std::shared_ptr<UIAlertAction>> actions_;
};

}  // namespace tavrel
