#include "event_files.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace tavrel::cli {
namespace {

// Control characters shown as escapes, so one event stays one row.
std::string printable(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", byte);
      out += escape;
    } else {
      out += c;
    }
  }
  return out;
}

// Display width of UTF-8 text: one column a code point, which holds for the scripts a game
// event usually carries.
std::size_t columns(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padRight(const std::string& text, std::size_t width) {
  const std::size_t used = columns(text);
  return used >= width ? text : text + std::string(width - used, ' ');
}

std::string count(std::size_t n, const char* singular, const char* plural) {
  return std::to_string(n) + " " + (n == 1 ? singular : plural);
}

std::string padLeft(const std::string& text, std::size_t width) {
  return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

const char* kindName(InputRecord::Kind kind) {
  switch (kind) {
    case InputRecord::Kind::TouchMoved:
      return "touch moved";
    case InputRecord::Kind::TouchEnded:
      return "touch ended";
    case InputRecord::Kind::Other:
      break;
  }
  return "other";
}

void appendGameRows(std::ostringstream& out, const EventFileContents& contents) {
  std::vector<std::pair<std::string, std::string>> cells;
  std::size_t width = 1;
  for (const auto& event : contents.gameEvents) {
    cells.emplace_back(printable(event.a), printable(event.e));
    width = std::max(width, columns(cells.back().first));
  }
  width = std::min<std::size_t>(width, 40);
  out << "  " << padLeft("t (ms)", 11) << "  " << padRight("a", width) << "  e\n";
  for (std::size_t i = 0; i < cells.size(); ++i) {
    out << "  " << padLeft(std::to_string(contents.gameEvents[i].t), 11) << "  " << padRight(cells[i].first, width)
        << "  " << cells[i].second << "\n";
  }
}

void appendInputRows(std::ostringstream& out, const EventFileContents& contents) {
  // markIndex tells fingers apart: the finger's touch mark, 0 to 9, or -1 for a finger without one.
  out << "  " << padLeft("t (ms)", 11) << "  event        " << padLeft("finger", 6) << "  " << padLeft("x", 6) << "  "
      << padLeft("y", 6) << "  landscape\n";
  for (const auto& record : contents.inputRecords) {
    out << "  " << padLeft(std::to_string(record.timeOffset), 11) << "  " << padRight(kindName(record.kind()), 11);
    const auto& p = record.payload;
    switch (record.kind()) {
      case InputRecord::Kind::TouchMoved:
        out << "  " << padLeft(std::to_string(p[2]), 6) << "  " << padLeft(std::to_string(p[3]), 6) << "  "
            << padLeft(std::to_string(p[4]), 6) << "  " << p[5];
        break;
      case InputRecord::Kind::TouchEnded:
        out << "  " << padLeft(std::to_string(p[2]), 6);
        break;
      case InputRecord::Kind::Other:
        out << "  words";
        for (const std::int32_t word : p) out << ' ' << word;
        break;
    }
    out << "\n";
  }
}

}  // namespace

std::optional<std::string> readBinaryFile(const std::string& path, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = std::strerror(errno);
    return std::nullopt;
  }
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) {
    error = "read error";
    return std::nullopt;
  }
  return std::move(bytes).str();
}

std::string describeProblem(const EventFileProblem& problem) {
  std::string text = "byte " + std::to_string(problem.offset);
  if (problem.line) text += ", line " + std::to_string(*problem.line);
  return text + ": " + problem.message;
}

std::string eventCountSummary(const EventFileContents& contents) {
  switch (contents.kind) {
    case EventFileKind::Game:
      return count(contents.gameEvents.size(), "game event", "game events");
    case EventFileKind::Input: {
      std::size_t moved = 0, ended = 0;
      for (const auto& record : contents.inputRecords) {
        moved += record.kind() == InputRecord::Kind::TouchMoved;
        ended += record.kind() == InputRecord::Kind::TouchEnded;
      }
      const std::size_t other = contents.inputRecords.size() - moved - ended;
      return count(contents.inputRecords.size(), "input record", "input records") + " (" + std::to_string(moved) +
             " touch moved, " + std::to_string(ended) + " touch ended" +
             (other > 0 ? ", " + std::to_string(other) + " other" : std::string()) + ")";
    }
    case EventFileKind::Unknown:
      break;
  }
  return "no events";
}

std::string eventFileTable(const std::string& path, const EventFileContents& contents) {
  std::ostringstream out;
  out << path << ": ";
  if (contents.kind == EventFileKind::Unknown) {
    out << "not an event file, " << contents.size << " bytes\n";
  } else {
    out << eventFileKindName(contents.kind) << " event file, " << contents.size << " bytes, "
        << eventCountSummary(contents) << (contents.wellFormed() ? "" : ", MALFORMED") << "\n";
    if (contents.kind == EventFileKind::Game) {
      appendGameRows(out, contents);
    } else {
      appendInputRows(out, contents);
    }
  }
  for (const auto& problem : contents.problems) out << "  error at " << describeProblem(problem) << "\n";
  return out.str();
}

nlohmann::json eventFileJson(const std::string& path, const EventFileContents& contents) {
  nlohmann::json events = nlohmann::json::array();
  for (const auto& event : contents.gameEvents) {
    events.push_back({{"line", event.line}, {"offset", event.offset}, {"t", event.t}, {"a", event.a}, {"e", event.e}});
  }
  for (const auto& record : contents.inputRecords) {
    nlohmann::json row = {{"offset", record.offset}, {"t", record.timeOffset}, {"kind", kindName(record.kind())}};
    const auto& p = record.payload;
    switch (record.kind()) {
      case InputRecord::Kind::TouchMoved:
        row.update({{"markIndex", p[2]}, {"x", p[3]}, {"y", p[4]}, {"landscape", p[5]}});
        break;
      case InputRecord::Kind::TouchEnded:
        row["markIndex"] = p[2];
        break;
      case InputRecord::Kind::Other:
        row["wordCount"] = record.wordCount;
        row["words"] = p;
        break;
    }
    events.push_back(std::move(row));
  }
  nlohmann::json problems = nlohmann::json::array();
  for (const auto& problem : contents.problems) {
    nlohmann::json row = {{"offset", problem.offset}, {"message", problem.message}};
    if (problem.line) row["line"] = *problem.line;
    problems.push_back(std::move(row));
  }
  return {{"path", path},         {"kind", eventFileKindName(contents.kind)}, {"bytes", contents.size},
          {"wellFormed", contents.wellFormed()}, {"events", std::move(events)},     {"problems", std::move(problems)}};
}

}  // namespace tavrel::cli
