// tavrel demo: the main job. Plays the bundled session script (examples/sessions/demo.session,
// built into the tool) through the whole library: a refused token, the login page, a wrong
// password, the game under the overlay, the repeat page at 10:00, a valid launch URL, uploads.

#include "commands.hpp"
#include "session_command.hpp"

#include <memory>

namespace tavrel::cli {

extern const char* const kDemoScript;

void addDemoCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<SessionCommandOptions>();
  options->out = "tavrel-demo-out";
  CLI::App* command = app.add_subcommand("demo", "Play the bundled demo session and report what happened");
  addSessionOptions(*command, *options);
  command->callback([options, &exitStatus] { exitStatus = playSessionScript(kDemoScript, "demo.session", *options); });
}

}  // namespace tavrel::cli
