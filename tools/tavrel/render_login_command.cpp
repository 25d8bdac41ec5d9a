#include "commands.hpp"

namespace tavrel::cli {

void addRenderLoginCommand(CLI::App& render, int& exitStatus) {
  auto* command = render.add_subcommand("login", "Not built yet");
  command->callback([&exitStatus] {
    exitStatus = 2;
    throw UsageError("render login: not built yet");
  });
}

}  // namespace tavrel::cli
