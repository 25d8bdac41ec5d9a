#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

namespace tavrel {

void TavrelSDK::terminate() { Platform::current().exit(255); }

void TavrelSDK::terminateWithPopup() {
  Platform::current().dispatchAsyncMain([this] {
    auto alert = UIAlertController::alertControllerWithTitle(
        "Tavrel by Orvane", "Please start your gameplay session through the Tavrel iOS app!",
        UIAlertControllerStyle::Alert);
    // The button is the only way out: the game runs on behind the alert until it is tapped.
    alert->addAction(UIAlertAction::actionWithTitle("OK", UIAlertActionStyle::Default,
                                                    [this](UIAlertAction*) { terminate(); }));
    if (_parentViewController) _parentViewController->presentViewController(alert, true, nullptr);
  });
}

}  // namespace tavrel
