#include "session/launch_url.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>

#include "platform/strings.hpp"
#include "platform/url.hpp"

#include <cctype>
#include <stdexcept>

namespace tavrel {
namespace {

constexpr std::string_view kItemSeparator = "||";

std::string rewriteSeparators(std::string query) {
  // Order matters and is fixed: a value may hold any of the others' names.
  query = replacingOccurrences(query, "&recordingStartedAt", "||recordingStartedAt");
  query = replacingOccurrences(query, "&gameEventUrl", "||gameEventUrl");
  return replacingOccurrences(query, "&inputEventUrl", "||inputEventUrl");
}

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

std::string percentEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size() * 3);
  for (unsigned char c : text) {
    if (isUnreserved(c)) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

void requireComposable(std::string_view name, std::string_view value) {
  if (!isValidUtf8(value)) {
    throw std::invalid_argument(std::string(name) + " is not UTF-8 text");
  }
  if (value.find('+') != std::string_view::npos) {
    throw std::invalid_argument(std::string(name) + " holds \"+\", which the game reads back as \"%2B\"");
  }
}

}  // namespace

std::map<std::string, std::string> TavrelSDK::parseQueryString(const std::optional<std::string>& query) {
  std::map<std::string, std::string> items;
  if (!query) return items;
  const std::string_view text = *query;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(kItemSeparator, start);
    const std::string_view item = text.substr(start, end == std::string_view::npos ? text.npos : end - start);
    const std::size_t equals = item.find('=');
    if (equals == std::string_view::npos) {
      throw std::invalid_argument("item \"" + std::string(item) + "\" has no \"=\"");
    }
    auto key = removingPercentEncoding(item.substr(0, equals));
    auto value = removingPercentEncoding(item.substr(equals + 1));
    if (!key || !value) {
      throw std::invalid_argument("item \"" + std::string(item) +
                                  "\" holds a \"%\" that opens no escape after the first decoding");
    }
    items.insert_or_assign(std::move(*key), replacingOccurrences(*value, "+", "%2B"));
    if (end == std::string_view::npos) break;
    start = end + kItemSeparator.size();
  }
  return items;
}

LaunchUrlReading readLaunchUrl(const std::string& url) {
  LaunchUrlReading reading;
  const auto parsed = Url::URLWithString(url);
  if (!parsed || parsed->host() != "validate") return reading;
  const std::string& absolute = parsed->absoluteString();
  const std::size_t question = absolute.find('?');
  if (question == std::string::npos) {
    reading.outcome = LaunchUrlReading::Outcome::Malformed;
    reading.problem = "the URL has no query (no \"?\")";
    return reading;
  }
  const auto decoded = removingPercentEncoding(rewriteSeparators(absolute.substr(question + 1)));
  try {
    reading.items = TavrelSDK::parseQueryString(decoded);
    reading.outcome = LaunchUrlReading::Outcome::Parsed;
  } catch (const std::invalid_argument& e) {
    reading.outcome = LaunchUrlReading::Outcome::Malformed;
    reading.problem = e.what();
  }
  return reading;
}

void TavrelSDK::processUrlRequest(const std::string& url) {
  const LaunchUrlReading reading = readLaunchUrl(url);
  if (reading.outcome != LaunchUrlReading::Outcome::Parsed) return;
  const auto& items = reading.items;
  const auto find = [&](const char* key) -> std::optional<std::string> {
    const auto it = items.find(key);
    if (it == items.end()) return std::nullopt;
    return it->second;
  };

  const auto gameEventUrl = find("gameEventUrl");
  const auto inputEventUrl = find("inputEventUrl");
  const auto recordingStartedAt = find("recordingStartedAt");
  const std::int64_t recordingStart = recordingStartedAt ? longLongValue(*recordingStartedAt) : 0;
  if ((gameEventUrl && !gameEventUrl->empty()) || (inputEventUrl && !inputEventUrl->empty())) {
    initialiseEventsWithGameEventUrl(gameEventUrl, inputEventUrl, recordingStart);
  }

  const auto launchToken = find("launchToken");
  if (!launchToken) return;
  setAuthToken(launchToken);
  if (_validationCallbackSet.load()) {
    validate(_validationCallback.get());
  }
}

std::string composeLaunchUrl(const LaunchUrlValues& values) {
  const auto& scheme = values.scheme;
  const bool schemeValid =
      !scheme.empty() && std::isalpha(static_cast<unsigned char>(scheme[0])) &&
      scheme.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-.") ==
          std::string::npos;
  if (!schemeValid) {
    throw std::invalid_argument("scheme \"" + scheme + "\" is not a URL scheme (a letter, then letters, digits, \"+\", \"-\" or \".\")");
  }
  requireComposable("the token", values.launchToken);
  if (utf16Length(values.launchToken) < 48) {
    throw std::invalid_argument("the token has " + std::to_string(utf16Length(values.launchToken)) +
                                " characters; the game takes a token only from 48 characters on");
  }
  // Encoded twice: the game decodes every value twice, and after the first decoding no value
  // may show a literal "&" before a known name or a "||".
  const auto encodeTwice = [](std::string_view value) { return percentEncode(percentEncode(value)); };
  std::string url = scheme + "://validate?launchToken=" + encodeTwice(values.launchToken);
  if (values.gameEventUrl) {
    requireComposable("the game event URL", *values.gameEventUrl);
    url += "&gameEventUrl=" + encodeTwice(*values.gameEventUrl);
  }
  if (values.inputEventUrl) {
    requireComposable("the input event URL", *values.inputEventUrl);
    url += "&inputEventUrl=" + encodeTwice(*values.inputEventUrl);
  }
  if (values.recordingStartedAt) {
    url += "&recordingStartedAt=" + std::to_string(*values.recordingStartedAt);
  }
  return url;
}

}  // namespace tavrel
