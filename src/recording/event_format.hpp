#pragma once

// The bytes of the two event files, shared by the writers in the library and by every reader
// (the tavrel tool, tests).
//
// Game event file: the header "GEV\n1\n", then one line per event,
//   {"a": "<data>", "e": "<name>", "t": <ms>}\n
// in 7-bit ASCII. Input event file: the magic 49 4E 50 02, then records of signed 32-bit
// little-endian words: timeOffset, wordCount, then wordCount - 1 payload words.

#include <tavrel_sdk/export.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel {

inline constexpr std::string_view kGameEventHeader{"GEV\n1\n", 6};
inline constexpr std::string_view kInputEventMagic{"INP\x02", 4};

// The time word of both files: the low 32 bits of nowMs - startMs, read as signed, so it wraps
// after about 24.8 days and is negative before the start.
TAVREL_EXPORT std::int32_t eventTime(std::int64_t nowMs, std::int64_t startMs);

// One game event line with its line feed. An absent text prints as "(null)". Text inside ASCII
// goes in unchanged; each character outside it becomes a JSON \uXXXX escape (UTF-16 units,
// surrogate pairs for astral characters; a byte that is not UTF-8 becomes \ufffd), so the file
// stays 7-bit ASCII and every line stays one line.
TAVREL_EXPORT std::string gameEventLine(const std::optional<std::string>& data,
                                        const std::optional<std::string>& name, std::int32_t time);

// One input record: the time word, event[0] + 1, then the rest of the event, each as a
// little-endian word. Empty for an empty event.
TAVREL_EXPORT std::string inputEventRecord(std::int32_t time, std::span<const std::int32_t> event);

// Appends `value` as 4 little-endian bytes.
TAVREL_EXPORT void appendWord(std::string& out, std::int32_t value);
// Reads 4 little-endian bytes at `at`; the caller checks that they are there.
TAVREL_EXPORT std::int32_t readWord(std::string_view bytes, std::size_t at);

}  // namespace tavrel
