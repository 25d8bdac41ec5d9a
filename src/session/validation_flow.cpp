#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include "backend/validation.hpp"
#include "login/login_view_controller.hpp"

namespace tavrel {

namespace {
constexpr double kReloginInterval = 600.0;
}

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
    if (_parentViewController) _parentViewController->presentViewController(page, true, nullptr);
  });
}

void TavrelSDK::dismissLoginPage() {
  Platform::current().dispatchAsyncMain([this] {
    if (isLoginPageVisible()) _parentViewController->dismissViewControllerAnimated(false, nullptr);
  });
}

bool TavrelSDK::isLoginPageVisible() {
  if (!_parentViewController) return false;
  return std::dynamic_pointer_cast<LoginViewController>(_parentViewController->presentedViewController()) != nullptr;
}

void TavrelSDK::timerFired(Timer* /*timer*/) {
  Platform::current().dispatchAsyncMain([this] {
    if (isLoginPageVisible()) return;
    auto page = std::make_shared<LoginViewController>([](bool) {});
    if (_parentViewController) _parentViewController->presentViewController(page, true, nullptr);
  });
}

}  // namespace tavrel
