// tavrel plot: one picture of a recording's event files (see event_plot.hpp). Exit status 1 when
// a file cannot be read or is not an event file; the picture of the others is written all the same.

#include "commands.hpp"
#include "event_files.hpp"
#include "event_plot.hpp"
#include "render_support.hpp"

#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tavrel::cli {
namespace {

struct Options {
  std::vector<std::string> files;
  std::string output;
  std::string size = "1000x720";
  std::string screen = "390x844";
};

int run(const Options& options) {
  const CGSize size = parseScreenSize(options.size, "--size");
  const CGSize screen = parseScreenSize(options.screen, "--screen");
  int status = 0;
  std::vector<std::pair<std::string, EventFileContents>> files;
  for (const auto& path : options.files) {
    std::string error;
    const auto bytes = readBinaryFile(path, error);
    if (!bytes) {
      std::cerr << "tavrel plot: " << path << ": cannot read: " << error << "\n";
      status = 1;
      continue;
    }
    EventFileContents contents = readEventFile(*bytes);
    if (contents.kind == EventFileKind::Unknown) {
      std::cerr << "tavrel plot: " << path << ": not an event file\n";
      status = 1;
      continue;
    }
    for (const auto& problem : contents.problems) std::cerr << path << ": " << describeProblem(problem) << "\n";
    files.emplace_back(path.substr(path.find_last_of('/') + 1), std::move(contents));
  }
  const std::string png = eventPlotPng(makeEventPlot(files, screen), size);
  std::ofstream out(options.output, std::ios::binary | std::ios::trunc);
  out << png;
  if (!out.flush()) {
    std::cerr << "tavrel plot: cannot write " << options.output << "\n";
    return 1;
  }
  return status;
}

}  // namespace

void addPlotCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "plot", "Draw a recording's event files as one picture: touches over the screen, events along time");
  command->add_option("files", options->files, "game and input event files (.evt) of one recording")->required();
  command->add_option("-o,--output", options->output, "the PNG to write")->required();
  command->add_option("--size", options->size, "the picture in pixels, WxH")->capture_default_str();
  command->add_option("--screen", options->screen, "the screen the touches were scaled to, in points held upright, WxH")
      ->capture_default_str();
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
