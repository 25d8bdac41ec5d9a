#pragma once

// What `tavrel run` and `tavrel demo` share: their options and the playing of a script's text,
// with its errors reported as "NAME:LINE: message" and exit status 2. Main thread only.

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavrel::cli {

struct SessionCommandOptions {
  std::string out;
  bool realtime = false;
  bool window = false;
  std::optional<std::uint64_t> seed;
  bool noFrames = false;
  std::optional<std::string> serviceUrl;
  std::string caFile;
};

void addSessionOptions(CLI::App& command, SessionCommandOptions& options);

// Parses and plays; returns the exit status (0 passed, 1 a check failed, 2 an error).
int playSessionScript(std::string_view text, const std::string& name, const SessionCommandOptions& options);

}  // namespace tavrel::cli
