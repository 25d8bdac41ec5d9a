#include <tavrel_sdk/tavrel_sdk.hpp>

#include "platform/date_format.hpp"
#include "platform/strings.hpp"
#include "session/session_texts.hpp"

#include <cmath>
#include <cstdlib>
#include <string_view>

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

void assignTimestamp(std::string& into) {
  // The text changes once a second, or with the time zone: each thread formats it again only then.
  thread_local double second = -1.0;
  thread_local std::string text, zone;
  thread_local bool zoneSet = false;
  const double now = std::floor(Platform::current().timeIntervalSince1970());
  const char* tz = std::getenv("TZ");
  if (now != second || (tz != nullptr) != zoneSet || (tz && zone != tz) || text.empty()) {
    text = localTimestamp(now);
    second = now;
    zoneSet = tz != nullptr;
    zone = tz ? tz : "";
  }
  into.assign(text);
}

void appendUserId(std::string& into) {
  const auto userId = _userId.load();
  into.append(userId ? *userId : std::string_view("(null)"));
}

std::string TavrelSDK::getTimestamp() {
  std::string text;
  assignTimestamp(text);
  return text;
}

std::string TavrelSDK::getUserId() {
  std::string text;
  appendUserId(text);
  return text;
}

}  // namespace tavrel
