#include "commands.hpp"

namespace tavrel::cli {

void addRenderGalleryCommand(CLI::App& render, int& exitStatus) {
  auto* command = render.add_subcommand("gallery", "Not built yet");
  command->callback([&exitStatus] {
    exitStatus = 2;
    throw UsageError("render gallery: not built yet");
  });
}

}  // namespace tavrel::cli
