#pragma once

// The verbs of the tavrel tool. Each add*() registers its subcommand on the app; a verb's
// callback stores its exit status in `exitStatus`. Bad input is reported by throwing UsageError:
// main prints the message on stderr and exits with status 2.

#include <CLI/CLI.hpp>

#include <stdexcept>

namespace tavrel::cli {

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void addLaunchUrlCommands(CLI::App& app, int& exitStatus);
void addWatermarkCommand(CLI::App& app, int& exitStatus);
void addInspectCommand(CLI::App& app, int& exitStatus);
void addDemoCommand(CLI::App& app, int& exitStatus);
void addServeCommand(CLI::App& app, int& exitStatus);

}  // namespace tavrel::cli
