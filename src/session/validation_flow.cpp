#include <tavrel_sdk/tavrel_sdk.hpp>

#include "backend/validation.hpp"

namespace tavrel {

void TavrelSDK::validate(Completion completion) {
  _validationCallback.set(completion);
  _validationCallbackSet.store(true);
  // No local test of the token: a null one goes out too, and only the service's reply counts.
  Validation::validate(_authToken.get(), [completion = std::move(completion)](bool valid) {
    // The game hears only yes, on the URL session's queue. A refusal is for the login page,
    // which the login UI brings; until then the game simply hears nothing.
    if (valid && completion) completion(true);
  });
}

}  // namespace tavrel
