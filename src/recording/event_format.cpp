#include "recording/event_format.hpp"

#include "platform/strings.hpp"

#include <charconv>

namespace tavrel {
namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;

void appendUnitEscape(std::string& out, std::uint32_t unit) {
  static constexpr char kHex[] = "0123456789abcdef";
  const char escape[6] = {'\\', 'u', kHex[(unit >> 12) & 0xF], kHex[(unit >> 8) & 0xF],
                          kHex[(unit >> 4) & 0xF], kHex[unit & 0xF]};
  out.append(escape, sizeof escape);
}

void appendCodePointEscape(std::string& out, char32_t codePoint) {
  if (codePoint >= 0x10000) {
    const std::uint32_t offset = codePoint - 0x10000;
    appendUnitEscape(out, 0xD800 + (offset >> 10));
    appendUnitEscape(out, 0xDC00 + (offset & 0x3FF));
  } else {
    appendUnitEscape(out, codePoint);
  }
}

void appendAsciiText(std::string& out, const std::optional<std::string>& text) {
  if (!text) {
    out += "(null)";
    return;
  }
  const std::string_view s = *text;
  for (std::size_t i = 0; i < s.size();) {
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      // Runs of ASCII, the usual case, are copied whole.
      std::size_t end = i + 1;
      while (end < s.size() && static_cast<unsigned char>(s[end]) < 0x80) ++end;
      out.append(s, i, end - i);
      i = end;
      continue;
    }
    char32_t codePoint = 0;
    const std::size_t length = decodeUtf8(s, i, codePoint);
    appendCodePointEscape(out, length == 0 ? kReplacementCharacter : codePoint);
    i += length == 0 ? 1 : length;
  }
}

}  // namespace

std::int32_t eventTime(std::int64_t nowMs, std::int64_t startMs) {
  // Unsigned arithmetic: the difference of two arbitrary 64-bit values may overflow.
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(nowMs) -
                                                              static_cast<std::uint64_t>(startMs)));
}

std::string gameEventLine(const std::optional<std::string>& data, const std::optional<std::string>& name,
                          std::int32_t time) {
  std::string line;
  line.reserve(32 + (data ? data->size() : 6) + (name ? name->size() : 6));
  line += "{\"a\": \"";
  appendAsciiText(line, data);
  line += "\", \"e\": \"";
  appendAsciiText(line, name);
  line += "\", \"t\": ";
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, time).ptr;
  line.append(digits, end);
  line += "}\n";
  return line;
}

void appendWord(std::string& out, std::int32_t value) {
  const auto bits = static_cast<std::uint32_t>(value);
  const char bytes[4] = {static_cast<char>(bits & 0xFF), static_cast<char>((bits >> 8) & 0xFF),
                         static_cast<char>((bits >> 16) & 0xFF), static_cast<char>(bits >> 24)};
  out.append(bytes, 4);
}

std::int32_t readWord(std::string_view bytes, std::size_t at) {
  std::uint32_t bits = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    bits |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + k])) << (8 * k);
  }
  return static_cast<std::int32_t>(bits);
}

std::string inputEventRecord(std::int32_t time, std::span<const std::int32_t> event) {
  std::string record;
  if (event.empty()) return record;
  record.reserve(4 * (event.size() + 1));
  appendWord(record, time);
  // The count word includes the time word; wraps rather than overflows at INT32_MAX.
  appendWord(record, static_cast<std::int32_t>(static_cast<std::uint32_t>(event[0]) + 1u));
  for (std::size_t i = 1; i < event.size(); ++i) appendWord(record, event[i]);
  return record;
}

}  // namespace tavrel
