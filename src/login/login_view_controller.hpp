#pragma once

// The login page: presents LoginView, carries a login through the service to its end, and
// either dismisses itself and calls its callback with true, or shows the refusal alert and
// gives the form back.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

namespace tavrel {

class TAVREL_EXPORT LoginViewController : public UIViewController {
 public:
  // initWithCallback:. The callback runs at most once per accepted login, on the main thread,
  // with true, after the page's animated dismissal has started. Null: nothing is called.
  explicit LoginViewController(Completion callback);
  ~LoginViewController() override;

  void loadView() override;
  void viewDidLoad() override;

 private:
  Completion _callback;
};

}  // namespace tavrel
