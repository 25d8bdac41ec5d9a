#pragma once

// The library's whole contact with the Tavrel service: two HTTPS requests, each reduced to one
// bool. Nothing of a reply is kept but that bool, and nothing here logs, so neither a token nor
// a password can reach the log.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tavrel {

// The service's compiled-in base URL; Platform::serviceBaseUrlOverride() replaces it when set.
inline constexpr std::string_view kServiceBaseUrl = "https://api.tavrel.com";
inline constexpr std::string_view kValidatePath = "/m/launch/project/validate";
inline constexpr std::string_view kLoginPath = "/m/launch/project/auth/ios";
// A reply is one small JSON object: a body beyond this is no answer, and reads as false.
inline constexpr std::size_t kMaxServiceReplyBytes = 1024 * 1024;

// Thread safety: both operations may be called from any thread, any number at once; each
// request is independent of the others. The callback runs exactly once, later, on the URL
// session's background queue (never inside the call), with true only when the reply's body is
// a JSON object whose key ("valid" or "authed") reads true; a transport failure, an unreadable
// body, a body over kMaxServiceReplyBytes, a missing key and a request that timed out
// (kUrlRequestTimeout without data) all give false. The HTTP status is not read.
class TAVREL_EXPORT Validation {
 public:
  Validation() = delete;

  // GET of the validation path with the bare token in "Authorization"; no header at all for a
  // null token, and the request goes out all the same.
  static void validate(const std::optional<std::string>& token, Completion callback);

  // POST of the login path with {"username":..,"password":..,"urlScheme":..} as compact JSON.
  static void loginWithUsername(const std::string& username, const std::string& password,
                                const std::string& urlScheme, Completion callback);

  // The base URL requests go to: the override when set, else kServiceBaseUrl.
  static std::string serviceBaseUrl();
};

}  // namespace tavrel
