#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include "ui/class_name.hpp"

#include <algorithm>

namespace tavrel {

namespace {

// Transitions move at the display's pace.
constexpr double kTransitionFrameInterval = 1.0 / 60.0;
// The timer runs a hair faster, so that the last tick falls within the duration although the
// timer's due times add up rounding: advancing a simulation by the duration ends the transition.
constexpr double kTransitionTimerInterval = kTransitionFrameInterval * (1.0 - 1e-6);
// Float steps of the clock must not leave a transition one frame short of its end.
constexpr double kTransitionEndTolerance = 1e-9;

// Slow at both ends, as the platform's transitions.
double easeInOut(double t) { return t * t * (3.0 - 2.0 * t); }

std::shared_ptr<UIViewController> sharedController(UIViewController& controller) {
  return std::static_pointer_cast<UIViewController>(controller.weak_from_this().lock());
}

void runOnMainLoop(std::function<void()> completion) {
  if (completion) Platform::current().dispatchAsyncMain(std::move(completion));
}

void logRefusedPresentation(const UIViewController& presented, const UIViewController& presenter,
                            const std::string& reason) {
  Platform::current().log("Attempt to present " + describeObject(presented) + " on " + describeObject(presenter) + " " +
                          reason);
}

}  // namespace

// The presented controller's transition: its view slides (a page) or fades (an alert) by the
// platform's clock, one step per timer tick, and `finish` runs once at the end.
struct UIViewController::Transition {
  // An alert fades, anything else slides.
  Transition(const UIViewController& presented, bool isDismissal)
      : dismissal(isDismissal),
        fade(dynamic_cast<const UIAlertController*>(&presented) != nullptr),
        duration(fade ? kAlertTransitionDuration : kPageTransitionDuration) {}

  bool dismissal;
  bool fade;
  double duration;
  double startTime = 0.0;
  int ticks = 0;
  std::shared_ptr<Timer> timer;
  std::function<void()> finish;

  ~Transition() {
    if (timer) timer->invalidate();
  }

  // The share of the way done. Ticks count too, so that a wall clock stepped back cannot
  // hold a transition on the screen.
  double progress(double now) const {
    const double byClock = (now - startTime) / duration;
    const double byTicks = ticks * kTransitionFrameInterval / duration;
    return std::clamp(std::max(byClock, byTicks), 0.0, 1.0);
  }

  // Places the view for `done` of the way (0 to 1) within a screen of `screen`.
  void apply(UIView& view, CGRect screen, double done) const {
    const double shown = dismissal ? 1.0 - done : done;
    if (fade) {
      view.setAlpha(shown);
    } else {
      view.setFrame({{screen.origin.x, screen.origin.y + screen.size.height * (1.0 - easeInOut(shown))}, screen.size});
    }
  }
};

UIViewController::UIViewController() = default;

UIViewController::~UIViewController() {
  tearDownPresentations();
  if (view_ && view_->viewController_ == this) view_->viewController_ = nullptr;
}

std::shared_ptr<UIView> UIViewController::view() {
  if (!view_) {
    loadView();
    if (!view_) UIViewController::loadView();
    viewDidLoad();
  }
  return view_;
}

void UIViewController::setView(std::shared_ptr<UIView> view) {
  if (view == view_) return;
  if (view_ && view_->viewController_ == this) view_->viewController_ = nullptr;
  view_ = std::move(view);
  if (view_) view_->viewController_ = this;
}

void UIViewController::loadView() { setView(std::make_shared<UIView>(UIScreen::mainScreen().bounds())); }

void UIViewController::presentViewController(std::shared_ptr<UIViewController> viewController, bool animated,
                                             std::function<void()> completion) {
  if (!viewController || viewController.get() == this) return;
  if (presented_) {
    logRefusedPresentation(*viewController, *this, "which is already presenting " + describeObject(*presented_));
    return;
  }
  // What it presented would be taken down with it at the end of its dismissal.
  if (isBeingDismissed()) {
    logRefusedPresentation(*viewController, *this, "while it is being dismissed");
    return;
  }
  if (auto other = viewController->presenting_.lock()) {
    logRefusedPresentation(*viewController, *this, "which is already presented by " + describeObject(*other));
    return;
  }
  UIWindow* window = isViewLoaded() ? view_->window() : nullptr;
  const auto self = sharedController(*this);
  if (!window || !self) {
    logRefusedPresentation(*viewController, *this, "whose view is not in the window hierarchy");
    return;
  }

  presented_ = viewController;
  viewController->presenting_ = self;
  const auto view = viewController->view();
  const CGRect screen = window->bounds();
  view->setFrame(screen);
  view->setAlpha(1.0);
  window->addSubview(view);
  if (!animated) {
    runOnMainLoop(std::move(completion));
    return;
  }
  auto transition = std::make_shared<Transition>(*viewController, false);
  transition->finish = std::move(completion);
  viewController->startTransition(std::move(transition));
}

void UIViewController::dismissViewControllerAnimated(bool animated, std::function<void()> completion) {
  if (!presented_) {
    if (auto presenter = presenting_.lock()) presenter->dismissViewControllerAnimated(animated, std::move(completion));
    return;
  }
  auto presented = presented_;
  const auto refuseIfDismissing = [&] {
    if (!presented->isBeingDismissed()) return false;
    Platform::current().log("Attempt to dismiss from view controller " + describeObject(*this) +
                            " while a presentation or dismiss is in progress!");
    return true;
  };
  if (refuseIfDismissing()) return;
  // A presentation still under way ends at once, so that the dismissal starts from its end.
  // Its completion may dismiss it itself: that dismissal stands and this one is refused.
  if (presented->isBeingPresented()) presented->endTransition();
  if (presented_ != presented || refuseIfDismissing()) return;
  // Whatever the presented controller presents in turn goes at once; only it is animated.
  presented->tearDownPresentations();
  if (!animated) {
    tearDownPresentations();
    runOnMainLoop(std::move(completion));
    return;
  }
  auto transition = std::make_shared<Transition>(*presented, true);
  transition->finish = [weakSelf = std::weak_ptr(sharedController(*this)), presented,
                        completion = std::move(completion)] {
    if (auto self = weakSelf.lock(); self && self->presented_ == presented) self->tearDownPresentations();
    if (completion) completion();
  };
  presented->startTransition(std::move(transition));
}

bool UIViewController::isBeingPresented() const { return transition_ && !transition_->dismissal; }

bool UIViewController::isBeingDismissed() const { return transition_ && transition_->dismissal; }

UIResponder* UIViewController::nextResponder() const {
  if (auto presenter = presenting_.lock()) return presenter.get();
  return view_ ? view_->superview() : nullptr;
}

void UIViewController::followWindow(CGRect bounds) {
  if (!view_) return;
  if (transition_ && !transition_->fade) {
    transition_->apply(*view_, bounds, transition_->progress(Platform::current().timeIntervalSince1970()));
    return;
  }
  view_->setFrame(bounds);
}

void UIViewController::startTransition(std::shared_ptr<Transition> transition) {
  auto& platform = Platform::current();
  transition->startTime = platform.timeIntervalSince1970();
  std::weak_ptr<UIViewController> weakSelf = sharedController(*this);
  transition->timer = platform.scheduledTimer(kTransitionTimerInterval, [weakSelf] {
    if (auto self = weakSelf.lock(); self && self->transition_) {
      ++self->transition_->ticks;
      self->stepTransition();
    }
  });
  if (auto* window = view_->window()) transition->apply(*view_, window->bounds(), 0.0);
  transition_ = std::move(transition);
}

void UIViewController::stepTransition() {
  const double done = transition_->progress(Platform::current().timeIntervalSince1970());
  if (done >= 1.0 - kTransitionEndTolerance) {
    endTransition();
    return;
  }
  if (auto* window = view_->window()) transition_->apply(*view_, window->bounds(), done);
}

void UIViewController::endTransition() {
  // Taken out first: `finish` may start the next transition.
  const auto transition = std::move(transition_);
  if (transition->timer) transition->timer->invalidate();
  if (auto* window = view_->window()) transition->apply(*view_, window->bounds(), 1.0);
  if (transition->finish) transition->finish();
}

void UIViewController::tearDownPresentations() {
  if (!presented_) return;
  const auto presented = std::move(presented_);
  presented->tearDownPresentations();
  presented->transition_.reset();
  presented->presenting_.reset();
  if (presented->isViewLoaded()) {
    presented->view_->removeFromSuperview();
    presented->view_->setAlpha(1.0);
  }
}

}  // namespace tavrel
