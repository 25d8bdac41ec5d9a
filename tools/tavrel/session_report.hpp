#pragma once

// What a scripted session did, as the run's report.txt, report.json and contact sheet show it.
// Plain data: fill it on one thread, then render.

#include "event_plot.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrel::cli {

struct StoryEntry {
  double time = 0;  // session seconds
  std::string text;
};

struct SnapshotRecord {
  std::string name;
  double time = 0;
  std::filesystem::path png;
  std::filesystem::path tree;
};

struct EventFileSummary {
  std::string label;  // "game events", "input events"
  std::filesystem::path path;  // empty while the SDK has named no file
  bool created = false;  // an event reached the file: the SDK creates it at the first
  std::uint64_t bytes = 0;
  std::int64_t emitted = 0;  // what the game or the player's touches handed to the SDK
  std::int64_t written = 0;  // records in the file
  bool wellFormed = false;
  bool sameAsLastUpload = false;  // the endpoint's last copy holds the same bytes
};

struct SessionReport {
  std::string script;
  double sessionSeconds = 0;
  double wallSeconds = 0;
  double cpuSeconds = 0;
  bool realtime = false;
  std::int64_t frames = 0;
  double renderSeconds = 0;  // wall time inside UIHost::renderFrame
  std::vector<StoryEntry> story;
  std::vector<EventFileSummary> files;
  std::map<std::string, int> uploadsByStatus;  // "200", "503", "dropped"
  std::uint64_t bytesUploaded = 0;
  int validateRequests = 0;
  int loginRequests = 0;
  std::size_t requests = 0;     // every request the service answered or dropped
  std::uint64_t connections = 0;  // that carried them
  // The service given by --service, whose requests this run cannot see: none of the counts of
  // requests, uploads and connections above is then known.
  std::string otherService;
  int checksPassed = 0;
  std::vector<SnapshotRecord> snapshots;
  std::optional<int> exitRecorded;
  std::size_t logLines = 0;
  std::string failure;  // "demo.session:14: ...", empty when none
  int exitStatus = 0;
};

std::string reportText(const SessionReport& report);
nlohmann::json reportJson(const SessionReport& report);

// One PNG that tells the session in its snapshots: thumbnails in a grid, each captioned with its
// time and name, under a title, and the plot of the recording as the last panel when given.
// Throws std::runtime_error when a snapshot cannot be read or the sheet cannot be written.
// No snapshots: no sheet, returns false.
bool writeContactSheet(const SessionReport& report, const std::filesystem::path& png,
                       const EventPlot* plot = nullptr);

}  // namespace tavrel::cli
