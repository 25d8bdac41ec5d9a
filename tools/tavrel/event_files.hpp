#pragma once

// Event files as the tool shows them: a readable table, or JSON. Reading and framing checks are
// the library's (recording/event_file_reader.hpp); this is presentation only.

#include "recording/event_file_reader.hpp"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace tavrel::cli {

// The whole file, or null with `error` set.
std::optional<std::string> readBinaryFile(const std::string& path, std::string& error);

// "byte 53, line 3: the line is not one JSON object"
std::string describeProblem(const EventFileProblem& problem);

// A title line, one row per event (time, then the fields), then one line per problem.
std::string eventFileTable(const std::string& path, const EventFileContents& contents);

// {"path", "kind", "bytes", "wellFormed", "events": [...], "problems": [...]}
nlohmann::json eventFileJson(const std::string& path, const EventFileContents& contents);

// "9 game events" or "1085 input records (1040 touch moved, 45 touch ended)"
std::string eventCountSummary(const EventFileContents& contents);

}  // namespace tavrel::cli
