#include <tavrel_sdk/tavrel_sdk.hpp>

#include "platform/date_format.hpp"
#include "platform/strings.hpp"

namespace tavrel {

TavrelSDK& TavrelSDK::sharedInstance() {
  // Made once, thread-safely, and never destroyed: threads may still reach it during exit.
  static TavrelSDK* instance = new TavrelSDK();
  return *instance;
}

void TavrelSDK::setAuthToken(const std::optional<std::string>& token) {
  if (token && utf16Length(*token) >= 48) {
    _authToken.set(*token);
    _userId.set(utf16Substring(*token, 24, 24));
  } else {
    _authToken.set(std::nullopt);
    _userId.set("no-user-id");
  }
}

std::string TavrelSDK::getTimestamp() { return localTimestamp(Platform::current().timeIntervalSince1970()); }

std::string TavrelSDK::getUserId() {
  auto userId = _userId.load();
  return userId ? *userId : "(null)";
}

}  // namespace tavrel
