#include "commands.hpp"

namespace tavrel::cli {

void addRenderOverlayCommand(CLI::App& render, int& exitStatus) {
  auto* command = render.add_subcommand("overlay", "Not built yet");
  command->callback([&exitStatus] {
    exitStatus = 2;
    throw UsageError("render overlay: not built yet");
  });
}

}  // namespace tavrel::cli
