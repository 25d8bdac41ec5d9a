#include <tavrel_sdk/tavrel_sdk.hpp>

namespace tavrel {

void TavrelSDK::validate(Completion completion) {
  _validationCallback.set(completion);
  _validationCallbackSet.store(true);
  // The request to the service and the login page arrive with the backend client and login UI.
}

}  // namespace tavrel
