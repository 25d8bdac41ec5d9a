#pragma once

// NSString operations with the platform's semantics, on UTF-8 text.

#include <tavrel_sdk/export.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavrel {

TAVREL_EXPORT bool isValidUtf8(std::string_view text);

// Decodes the multi-byte UTF-8 sequence at text[i] into codePoint and returns its length, or 0
// when no valid sequence starts there (ASCII, a stray continuation byte, a cut-off, overlong or
// surrogate form, a code point past U+10FFFF).
TAVREL_EXPORT std::size_t decodeUtf8(std::string_view text, std::size_t i, char32_t& codePoint);

// Length in UTF-16 code units (NSString length). Text must be valid UTF-8.
TAVREL_EXPORT std::size_t utf16Length(std::string_view utf8);

// The units [location, location + length) counted in UTF-16 (substringWithRange:). A surrogate
// pair cut in half becomes U+FFFD. The range is clamped to the text.
TAVREL_EXPORT std::string utf16Substring(std::string_view utf8, std::size_t location, std::size_t length);

// stringByRemovingPercentEncoding: null on a "%" that opens no two-digit hex escape, or when
// the decoded bytes are not UTF-8. "+" stays "+".
TAVREL_EXPORT std::optional<std::string> removingPercentEncoding(std::string_view text);

// longLongValue: leading blanks, an optional sign, then digits; 0 when there are none;
// clamped to the 64-bit range on overflow.
TAVREL_EXPORT std::int64_t longLongValue(std::string_view text);

// stringByReplacingOccurrencesOfString:withString:, every occurrence, left to right.
TAVREL_EXPORT std::string replacingOccurrences(std::string_view text, std::string_view target,
                                              std::string_view replacement);

}  // namespace tavrel
