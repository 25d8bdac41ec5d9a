#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include "backend/validation.hpp"
#include "login/login_view_controller.hpp"

#include <cstdint>
#include <memory>

namespace tavrel {

namespace {
constexpr double kReloginInterval = 600.0;
// How often a page waiting for the one before it to leave looks again: a transition's frame.
constexpr double kLeavingPollInterval = 1.0 / 60.0;

// Main thread only: dismissLoginPage's turns so far. A page still waiting to be presented is
// dropped by a dismissal that came after it was asked for.
std::uint64_t dismissalsRequested = 0;

bool presentedIsLeaving(const UIViewController& parent) {
  const auto presented = parent.presentedViewController();
  return presented && presented->isBeingDismissed();
}

// A page still sliding away is the parent's presented controller, and a presentation over it
// would be refused: the new page waits for its end, so that a refusal meanwhile still gates.
void presentLoginPage(std::shared_ptr<UIViewController> parent, std::shared_ptr<LoginViewController> page) {
  if (!presentedIsLeaving(*parent)) {
    parent->presentViewController(std::move(page), true, nullptr);
    return;
  }
  // Weak: the platform keeps the timer until it is invalidated, and the timer owns this box.
  auto self = std::make_shared<std::weak_ptr<Timer>>();
  *self = Platform::current().scheduledTimer(
      kLeavingPollInterval, [parent, page, self, asked = dismissalsRequested]() mutable {
        if (!page) return;
        const bool dismissed = dismissalsRequested != asked;
        if (!dismissed && presentedIsLeaving(*parent)) return;
        if (const auto timer = self->lock()) timer->invalidate();
        if (!dismissed) parent->presentViewController(std::move(page), true, nullptr);
        page.reset();
      });
}

}  // namespace

void TavrelSDK::validate(Completion completion) {
  _validationCallback.set(completion);
  _validationCallbackSet.store(true);
  // No local test of the token: a null one goes out too, and only the service's reply counts.
  Validation::validate(_authToken.get(), [this, completion = std::move(completion)](bool valid) {
    // On the URL session's queue. The game hears only yes; a refusal waits in the login page.
    if (valid) {
      dismissLoginPage();
      if (completion) completion(true);
    } else {
      showLoginPage(completion ? completion : Completion([](bool) {}));
    }
  });
}

void TavrelSDK::showLoginPage(Completion completion) {
  Platform::current().dispatchAsyncMain([this, completion = std::move(completion)] {
    auto page = std::make_shared<LoginViewController>([this, completion](bool loggedIn) {
      if (loggedIn) {
        // An earlier timer is only dropped from _timer: it goes on firing.
        setTimer(Platform::current().scheduledTimer(kReloginInterval, [this] { timerFired(nullptr); }));
      }
      if (completion) completion(true);
    });
    // With no parent the page reaches nobody, as a message to nil would.
    if (_parentViewController) presentLoginPage(_parentViewController, std::move(page));
  });
}

void TavrelSDK::dismissLoginPage() {
  Platform::current().dispatchAsyncMain([this] {
    ++dismissalsRequested;
    // A page already sliding away goes anyway; dismissing it again would only be refused.
    if (isLoginPageVisible() && !presentedIsLeaving(*_parentViewController)) {
      _parentViewController->dismissViewControllerAnimated(false, nullptr);
    }
  });
}

bool TavrelSDK::isLoginPageVisible() {
  if (!_parentViewController) return false;
  return std::dynamic_pointer_cast<LoginViewController>(_parentViewController->presentedViewController()) != nullptr;
}

void TavrelSDK::timerFired(Timer* /*timer*/) {
  Platform::current().dispatchAsyncMain([this] {
    // A page on its way out is no longer up: the repeat page follows it.
    if (isLoginPageVisible() && !presentedIsLeaving(*_parentViewController)) return;
    auto page = std::make_shared<LoginViewController>([](bool) {});
    if (_parentViewController) presentLoginPage(_parentViewController, std::move(page));
  });
}

}  // namespace tavrel
