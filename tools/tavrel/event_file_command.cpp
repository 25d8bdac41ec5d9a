// tavrel inspect: prints game and input event files as tables (or one JSON document) and checks
// their framing. Exit status 1 when any file is malformed or unreadable.

#include "commands.hpp"
#include "event_files.hpp"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tavrel::cli {
namespace {

struct Options {
  std::vector<std::string> files;
  bool json = false;
};

int run(const Options& options) {
  bool allGood = true;
  nlohmann::json documents = nlohmann::json::array();
  for (std::size_t i = 0; i < options.files.size(); ++i) {
    const std::string& path = options.files[i];
    std::string error;
    const auto bytes = readBinaryFile(path, error);
    if (!bytes) {
      allGood = false;
      if (options.json) {
        documents.push_back({{"path", path}, {"error", "cannot read: " + error}});
      } else {
        std::cout << (i > 0 ? "\n" : "") << path << ": cannot read: " << error << "\n";
      }
      continue;
    }
    const EventFileContents contents = readEventFile(*bytes);
    allGood = allGood && contents.wellFormed();
    if (options.json) {
      documents.push_back(eventFileJson(path, contents));
    } else {
      std::cout << (i > 0 ? "\n" : "") << eventFileTable(path, contents);
    }
  }
  if (options.json) {
    const nlohmann::json document = {{"files", std::move(documents)}, {"wellFormed", allGood}};
    std::cout << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
  }
  std::cout.flush();
  return allGood ? 0 : 1;
}

}  // namespace

void addInspectCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "inspect", "Print game and input event files as tables and check their framing (exit 1 if malformed)");
  command->add_option("files", options->files, "event files (.evt) to read")->required();
  command->add_flag("--json", options->json, "print one JSON document instead of tables");
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
