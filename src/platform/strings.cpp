#include "platform/strings.hpp"

#include <algorithm>
#include <limits>

namespace tavrel {
namespace {

// Length of the UTF-8 sequence starting at `lead`, 0 when `lead` cannot start one.
std::size_t sequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::size_t decodeUtf8(std::string_view text, std::size_t i, char32_t& codePoint) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[i + k]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  char32_t minimum = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    minimum = 0x80;
    codePoint = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    minimum = 0x800;
    codePoint = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    minimum = 0x10000;
    codePoint = lead & 0x07;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    if ((byte(k) & 0xC0) != 0x80) return 0;
    codePoint = (codePoint << 6) | (byte(k) & 0x3F);
  }
  if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return 0;
  return length;
}

bool isValidUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      ++i;
      continue;
    }
    char32_t codePoint = 0;
    const std::size_t length = decodeUtf8(text, i, codePoint);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

std::size_t utf16Length(std::string_view utf8) {
  std::size_t units = 0;
  for (unsigned char c : utf8) {
    if ((c & 0xC0) != 0x80) units += 1;  // a lead byte starts one code point
    if (c >= 0xF0) units += 1;           // four-byte sequences need a surrogate pair
  }
  return units;
}

std::string utf16Substring(std::string_view utf8, std::size_t location, std::size_t length) {
  static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::string out;
  const std::size_t end = length > std::numeric_limits<std::size_t>::max() - location
                              ? std::numeric_limits<std::size_t>::max()
                              : location + length;
  std::size_t unit = 0;
  for (std::size_t i = 0; i < utf8.size() && unit < end;) {
    const std::size_t len = std::max<std::size_t>(1, sequenceLength(static_cast<unsigned char>(utf8[i])));
    const std::size_t units = len == 4 ? 2 : 1;
    const bool whollyInside = unit >= location && unit + units <= end;
    const bool partlyInside = !whollyInside && unit + units > location;
    if (whollyInside) {
      out.append(utf8.substr(i, len));
    } else if (partlyInside) {
      out.append(kReplacement);  // only one half of a surrogate pair lies in the range
    }
    unit += units;
    i += len;
  }
  return out;
}

std::optional<std::string> removingPercentEncoding(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  if (!isValidUtf8(out)) return std::nullopt;
  return out;
}

std::int64_t longLongValue(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r' ||
                             text[i] == '\v' || text[i] == '\f')) {
    ++i;
  }
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  // Accumulated as a negative number, whose range includes INT64_MIN.
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  std::int64_t value = 0;
  bool overflow = false;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    const int digit = text[i] - '0';
    if (value < (kMin + digit) / 10) {
      overflow = true;
    } else {
      value = value * 10 - digit;
    }
  }
  if (overflow) return negative ? kMin : std::numeric_limits<std::int64_t>::max();
  if (negative) return value;
  return value == kMin ? std::numeric_limits<std::int64_t>::max() : -value;
}

std::string replacingOccurrences(std::string_view text, std::string_view target, std::string_view replacement) {
  if (target.empty()) return std::string(text);
  std::string out;
  out.reserve(text.size());
  std::size_t from = 0;
  for (std::size_t at = text.find(target); at != std::string_view::npos; at = text.find(target, from)) {
    out.append(text.substr(from, at - from));
    out.append(replacement);
    from = at + target.size();
  }
  out.append(text.substr(from));
  return out;
}

}  // namespace tavrel
