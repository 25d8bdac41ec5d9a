#include "recording/event_file_reader.hpp"

#include "recording/event_format.hpp"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <limits>

namespace tavrel {
namespace {

std::string hexByte(unsigned char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02X", byte);
  return text;
}

// The first offset where `bytes` departs from `expected`, or expected.size() when it matches.
std::size_t firstDifference(std::string_view bytes, std::string_view expected) {
  std::size_t i = 0;
  while (i < expected.size() && i < bytes.size() && bytes[i] == expected[i]) ++i;
  return i;
}

// Why a line is not an event, or empty when it is one.
std::string readGameEventLine(std::string_view text, GameEvent& event) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (static_cast<unsigned char>(text[i]) >= 0x80) {
      return "byte " + hexByte(static_cast<unsigned char>(text[i])) + " at column " + std::to_string(i + 1) +
             " is outside 7-bit ASCII";
    }
  }
  const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded() || !json.is_object()) return "the line is not one JSON object";
  const auto a = json.find("a");
  const auto e = json.find("e");
  const auto t = json.find("t");
  if (a == json.end() || !a->is_string()) return "the object has no text \"a\"";
  if (e == json.end() || !e->is_string()) return "the object has no text \"e\"";
  if (t == json.end() || !t->is_number_integer()) return "the object has no whole number \"t\"";
  const bool fits = t->is_number_unsigned()
                        ? t->get<std::uint64_t>() <= std::numeric_limits<std::int32_t>::max()
                        : t->get<std::int64_t>() >= std::numeric_limits<std::int32_t>::min() &&
                              t->get<std::int64_t>() <= std::numeric_limits<std::int32_t>::max();
  if (!fits) return "\"t\" " + t->dump() + " does not fit in 32 bits";
  event.a = a->get<std::string>();
  event.e = e->get<std::string>();
  event.t = static_cast<std::int32_t>(t->get<std::int64_t>());
  return {};
}

void readGameEvents(std::string_view bytes, EventFileContents& out) {
  const std::size_t headerEnd = firstDifference(bytes, kGameEventHeader);
  if (headerEnd < kGameEventHeader.size()) {
    out.problems.push_back({headerEnd, headerEnd < 4 ? 1u : 2u,
                            headerEnd == bytes.size() ? "the file ends inside the header \"GEV\\n1\\n\""
                                                      : "bad header: expected \"GEV\\n1\\n\", found byte " +
                                                            hexByte(static_cast<unsigned char>(bytes[headerEnd]))});
    return;
  }
  std::size_t line = 3;
  for (std::size_t offset = kGameEventHeader.size(); offset < bytes.size(); ++line) {
    const std::size_t end = bytes.find('\n', offset);
    if (end == std::string_view::npos) {
      out.problems.push_back({offset, line, "truncated last line: " + std::to_string(bytes.size() - offset) +
                                                " bytes and no line feed"});
      return;
    }
    GameEvent event;
    event.offset = offset;
    event.line = line;
    if (std::string why = readGameEventLine(bytes.substr(offset, end - offset), event); !why.empty()) {
      out.problems.push_back({offset, line, std::move(why)});
    } else {
      out.gameEvents.push_back(std::move(event));
    }
    offset = end + 1;
  }
}

void readInputRecords(std::string_view bytes, EventFileContents& out) {
  const std::size_t magicEnd = firstDifference(bytes, kInputEventMagic);
  if (magicEnd < kInputEventMagic.size()) {
    out.problems.push_back(
        {magicEnd, std::nullopt,
         magicEnd == bytes.size() ? "the file ends inside the magic 49 4E 50 02"
                                  : "bad magic: expected 49 4E 50 02, found byte " +
                                        hexByte(static_cast<unsigned char>(bytes[magicEnd])) +
                                        (magicEnd == 3 ? " (an unknown version)" : "")});
    return;
  }
  for (std::size_t offset = kInputEventMagic.size(); offset < bytes.size();) {
    const std::size_t left = bytes.size() - offset;
    if (left < 8) {
      out.problems.push_back({offset, std::nullopt,
                              "truncated last record: " + std::to_string(left) +
                                  " bytes left, a record needs at least 8 (time and word count)"});
      return;
    }
    InputRecord record;
    record.offset = offset;
    record.timeOffset = readWord(bytes, offset);
    record.wordCount = readWord(bytes, offset + 4);
    if (record.wordCount < 1) {
      out.problems.push_back({offset + 4, std::nullopt,
                              "word count " + std::to_string(record.wordCount) +
                                  " is less than 1: the record cannot be framed"});
      return;
    }
    const std::uint64_t size = 4 * (static_cast<std::uint64_t>(record.wordCount) + 1);
    if (size > left) {
      out.problems.push_back({offset + 4, std::nullopt,
                              "word count " + std::to_string(record.wordCount) + " runs past the end: the record at byte " +
                                  std::to_string(offset) + " needs " + std::to_string(size) + " bytes, " +
                                  std::to_string(left) + " are left"});
      return;
    }
    for (std::size_t at = offset + 8; at < offset + size; at += 4) record.payload.push_back(readWord(bytes, at));
    out.inputRecords.push_back(std::move(record));
    offset += static_cast<std::size_t>(size);
  }
}

}  // namespace

InputRecord::Kind InputRecord::kind() const {
  if (payload.size() >= 3 && payload[0] == 0) {
    if (wordCount == 7 && payload[1] == 6) return Kind::TouchMoved;
    if (wordCount == 4 && payload[1] == 7) return Kind::TouchEnded;
  }
  return Kind::Other;
}

EventFileContents readEventFile(std::string_view bytes) {
  EventFileContents out;
  out.size = bytes.size();
  if (bytes.substr(0, 3) == kGameEventHeader.substr(0, 3)) {
    out.kind = EventFileKind::Game;
    readGameEvents(bytes, out);
  } else if (bytes.substr(0, 3) == kInputEventMagic.substr(0, 3)) {
    out.kind = EventFileKind::Input;
    readInputRecords(bytes, out);
  } else {
    out.problems.push_back({0, std::nullopt,
                            bytes.empty() ? "the file is empty"
                                          : "not an event file: it starts neither with \"GEV\" nor with \"INP\""});
  }
  return out;
}

const char* eventFileKindName(EventFileKind kind) {
  switch (kind) {
    case EventFileKind::Game:
      return "game";
    case EventFileKind::Input:
      return "input";
    case EventFileKind::Unknown:
      break;
  }
  return "unknown";
}

}  // namespace tavrel
