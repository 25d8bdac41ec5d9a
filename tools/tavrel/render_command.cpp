#include "commands.hpp"

namespace tavrel::cli {

void addRenderCommand(CLI::App& app, int& exitStatus) {
  auto* render = app.add_subcommand("render", "Draw what a player sees into a PNG (and the view tree as JSON)");
  render->require_subcommand(1);
  addRenderGalleryCommand(*render, exitStatus);
  addRenderOverlayCommand(*render, exitStatus);
  addRenderLoginCommand(*render, exitStatus);
}

}  // namespace tavrel::cli
