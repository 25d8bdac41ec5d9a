#include "login/login_view_controller.hpp"

#include "backend/validation.hpp"
#include "login/login_view.hpp"
#include "platform/bundle.hpp"
#include "platform/notification_center.hpp"

#include <tavrel_sdk/ui/application.hpp>

#include <memory>
#include <utility>

namespace tavrel {
namespace {

constexpr const char* kNoUrlSchemeLog =
    "SDK > Login not sent: the game declares no URL scheme; add one under CFBundleURLTypes / "
    "CFBundleURLSchemes in its Info dictionary (Platform::setInfoDictionaryJson)";

std::string userInfoString(const nlohmann::json& userInfo, const char* key) {
  if (!userInfo.is_object()) return {};
  const auto it = userInfo.find(key);
  return it != userInfo.end() && it->is_string() ? it->get<std::string>() : std::string();
}

}  // namespace

LoginViewController::LoginViewController(Completion callback) : _callback(std::move(callback)) {
  setModalPresentationStyle(UIModalPresentationStyle::FullScreen);
}

LoginViewController::~LoginViewController() {
  // By name alone: asking view() here would load a view just to unregister it.
  NotificationCenter::defaultCenter().removeObserver(this, std::string(kAuthenticateNotification));
}

void LoginViewController::loadView() { setView(std::make_shared<LoginView>(UIScreen::mainScreen().bounds())); }

void LoginViewController::viewDidLoad() {
  UIViewController::viewDidLoad();
  NotificationCenter::defaultCenter().addObserver(this, kAuthenticateNotification, view().get(),
                                                  [this](const Notification& n) { handleAuthentication(n); });
}

void LoginViewController::handleAuthentication(const Notification& notification) {
  auto self = std::static_pointer_cast<LoginViewController>(shared_from_this());
  std::string username = userInfoString(notification.userInfo, "username");
  std::string password = userInfoString(notification.userInfo, "password");
  Platform& platform = Platform::current();
  // Read at each login: the host may set its Info dictionary late.
  auto urlScheme = firstUrlScheme();
  if (!urlScheme) {
    // The service needs the scheme to know the game; tell the integrator, and the player sees a
    // refusal like any other, on the same later turn of the main queue.
    platform.log(kNoUrlSchemeLog);
    platform.dispatchAsyncMain([self = std::move(self)] { self->loginFailed(); });
    return;
  }
  // The request starts on a later turn, after the button's action and the post have returned.
  platform.dispatchAsyncMain(
      [self = std::move(self), username = std::move(username), password = std::move(password),
       urlScheme = *std::move(urlScheme)] { self->sendLogin(username, password, urlScheme); });
}

void LoginViewController::sendLogin(const std::string& username, const std::string& password,
                                    const std::string& urlScheme) {
  auto self = std::static_pointer_cast<LoginViewController>(shared_from_this());
  Validation::loginWithUsername(username, password, urlScheme, [self = std::move(self)](bool authed) mutable {
    // On the URL session's queue. The reference moves on with the step, so the controller is
    // never released, and so never destroyed, off the main thread.
    Platform::current().dispatchAsyncMain([self = std::move(self), authed] {
      if (authed) {
        self->loginSucceeded();
      } else {
        self->loginFailed();
      }
    });
  });
}

void LoginViewController::loginSucceeded() {
  // A page already taken away has no presenter: nothing to dismiss, and the callback still runs.
  if (auto presenter = presentingViewController()) presenter->dismissViewControllerAnimated(true, nullptr);
  // At once, while the page is still sliding away.
  if (_callback) _callback(true);
}

void LoginViewController::loginFailed() {
  auto alert = UIAlertController::alertControllerWithTitle("Tavrel by Orvane", "Invalid username or password!",
                                                           UIAlertControllerStyle::Alert);
  // Weak: the alert is this controller's presented child, and a strong reference back would be a
  // cycle outliving the page. While the alert can be tapped, its presenter holds the page.
  std::weak_ptr<LoginViewController> page = std::static_pointer_cast<LoginViewController>(shared_from_this());
  alert->addAction(UIAlertAction::actionWithTitle("OK", UIAlertActionStyle::Default, [page](UIAlertAction*) {
    if (auto self = page.lock()) {
      NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, self->view().get());
    }
  }));
  presentViewController(alert, true, nullptr);
}

}  // namespace tavrel
