#pragma once

// The login page: presents LoginView, carries a login through the service to its end, and
// either dismisses itself and calls its callback with true, or shows the refusal alert and
// gives the form back.
//
// A login reads the game's URL scheme from the host's Info dictionary
// (CFBundleURLTypes[0].CFBundleURLSchemes[0]) at each attempt. A game that declares none cannot
// log in: each attempt sends nothing, logs one line naming what is missing, and ends in the
// same alert as a refused login.
//
// Every failure (refused, no network, an unreadable reply, no URL scheme) looks the same to the
// player. The work of a login that is under way keeps the controller alive, so a page taken
// away meanwhile still calls its callback on an accepted login.
//
// Thread safety: main thread only. The service's reply arrives on the URL session's queue and
// does nothing there but queue the outcome on the main queue. Make it with std::make_shared:
// a login's queued work holds the controller through shared_from_this().

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include <string>

namespace tavrel {

struct Notification;

class TAVREL_EXPORT LoginViewController : public UIViewController {
 public:
  // initWithCallback:. The callback runs at most once per accepted login, on the main thread,
  // with true, after the page's animated dismissal has started. Null: nothing is called.
  explicit LoginViewController(Completion callback);
  ~LoginViewController() override;

  // The view is a LoginView with the main screen's bounds.
  void loadView() override;
  // Starts observing the view's kAuthenticateNotification.
  void viewDidLoad() override;

 private:
  void handleAuthentication(const Notification& notification);
  void sendLogin(const std::string& username, const std::string& password, const std::string& urlScheme);
  void loginSucceeded();
  void loginFailed();

  Completion _callback;
};

}  // namespace tavrel
