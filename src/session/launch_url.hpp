#pragma once

// Launch URLs: scheme://validate?launchToken=T&gameEventUrl=U&inputEventUrl=V&recordingStartedAt=N
//
// The companion app writes them and the game hands them to TavrelSDK::processUrlRequest.
// Values may hold "&" and "=": the query is split on "||", which the reader makes from the "&"
// in front of the three known names, and every value is percent-decoded twice.

#include <tavrel_sdk/export.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tavrel {

struct TAVREL_EXPORT LaunchUrlReading {
  enum class Outcome {
    NotForUs,   // not a URL, or its host is not exactly "validate": the library does nothing
    Parsed,     // `items` holds the query's items (empty when the first decoding failed)
    Malformed,  // host "validate" but outside the format; `problem` says why; ignored as a whole
  };
  Outcome outcome = Outcome::NotForUs;
  std::map<std::string, std::string> items;
  std::string problem;
};

// Steps 1 to 5 of handling a launch URL: host test, query, separator rewrites, first decoding,
// parsing of the items.
TAVREL_EXPORT LaunchUrlReading readLaunchUrl(const std::string& url);

struct LaunchUrlValues {
  std::string scheme{};
  std::string launchToken{};
  std::optional<std::string> gameEventUrl{};
  std::optional<std::string> inputEventUrl{};
  std::optional<std::int64_t> recordingStartedAt{};
};

// A launch URL that reads back to exactly these values. Throws std::invalid_argument naming the
// value and the reason when one cannot come through unchanged: a "+" anywhere (it would come
// back as "%2B"), a token shorter than 48 characters, text that is not UTF-8, a bad scheme.
TAVREL_EXPORT std::string composeLaunchUrl(const LaunchUrlValues& values);

}  // namespace tavrel
