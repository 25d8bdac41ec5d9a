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
void addPlotCommand(CLI::App& app, int& exitStatus);
void addDemoCommand(CLI::App& app, int& exitStatus);
void addRunCommand(CLI::App& app, int& exitStatus);
void addServeCommand(CLI::App& app, int& exitStatus);
void addDoctorCommand(CLI::App& app, int& exitStatus);
// `tavrel render`: pictures of what a player sees. Each of its verbs lives in a file of its own.
void addRenderCommand(CLI::App& app, int& exitStatus);
void addRenderGalleryCommand(CLI::App& render, int& exitStatus);
void addRenderOverlayCommand(CLI::App& render, int& exitStatus);
void addRenderLoginCommand(CLI::App& render, int& exitStatus);

}  // namespace tavrel::cli
