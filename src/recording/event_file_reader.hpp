#pragma once

// Reads a game or input event file back into its events and checks its framing: the tavrel tool
// prints files with it, the simulator counts what a session wrote, tests compare against it.
// A reader must accept a touch moved record with no touch ended record after it: the rate limit
// drops either kind.

#include <tavrel_sdk/export.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel {

enum class EventFileKind { Unknown, Game, Input };

struct GameEvent {
  std::size_t offset = 0;  // of the line's first byte
  std::size_t line = 0;    // 1-based; the header takes lines 1 and 2
  std::string a;           // JSON-decoded, UTF-8
  std::string e;
  std::int32_t t = 0;
};

struct TAVREL_EXPORT InputRecord {
  enum class Kind { TouchMoved, TouchEnded, Other };

  std::size_t offset = 0;
  std::int32_t timeOffset = 0;
  std::int32_t wordCount = 0;
  std::vector<std::int32_t> payload;  // wordCount - 1 words

  // Touch moved: 7 words after the time, [0, 6, markIndex, x, y, landscape] as payload.
  // Touch ended: [0, 7, markIndex].
  Kind kind() const;
};

struct EventFileProblem {
  std::size_t offset = 0;           // byte offset where the fault is seen
  std::optional<std::size_t> line;  // game event files: the 1-based line
  std::string message;
};

struct EventFileContents {
  EventFileKind kind = EventFileKind::Unknown;
  std::size_t size = 0;
  std::vector<GameEvent> gameEvents;
  std::vector<InputRecord> inputRecords;
  // Empty for a well-formed file. A bad game event line is reported and skipped, since lines
  // frame themselves; in an input event file reading stops at the first fault.
  std::vector<EventFileProblem> problems;

  bool wellFormed() const { return kind != EventFileKind::Unknown && problems.empty(); }
};

// Tells the kind by the first bytes ("GEV" or "INP"), then reads the whole file.
TAVREL_EXPORT EventFileContents readEventFile(std::string_view bytes);

TAVREL_EXPORT const char* eventFileKindName(EventFileKind kind);  // "game", "input", "unknown"

}  // namespace tavrel
