// tavrel run SCRIPT: plays a session script (see session_script.hpp and the README).

#include "commands.hpp"
#include "session_command.hpp"
#include "session_runner.hpp"
#include "session_script.hpp"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace tavrel::cli {

#ifdef TAVREL_HAVE_SDL2
FrameTarget windowTarget();  // window_target.cpp
#endif

void addSessionOptions(CLI::App& command, SessionCommandOptions& options) {
  command.add_option("--out", options.out, "directory for the files, snapshots and report")->capture_default_str();
  command.add_flag("--realtime", options.realtime, "run on the real clock (Linux platform) instead of virtual time");
  command.add_flag("--window", options.window, "show the session in a window, on the real clock");
  command.add_option("--seed", options.seed, "seed of the simulation, replacing the script's");
  command.add_flag("--no-frames", options.noFrames, "draw no frames but the snapshots (the benchmark's baseline)");
  command.add_option("--service", options.serviceUrl,
                     "play against this service (tavrel serve's base-url) instead of the run's own");
  command.add_option("--ca-file", options.caFile, "the certificate to trust for --service (tavrel serve's ca-file)");
}

int playSessionScript(std::string_view text, const std::string& name, const SessionCommandOptions& options) {
  SessionScript script;
  try {
    script = parseSessionScript(text);
  } catch (const ScriptError& e) {
    std::cerr << name << ":" << e.line << ": " << e.what() << "\n";
    return 2;
  }
  RunOptions run;
  run.out = options.out;
  run.scriptName = name;
  run.realtime = options.realtime || options.window;
  run.seed = options.seed;
  run.drawFrames = !options.noFrames;
  if (options.serviceUrl.has_value() != !options.caFile.empty()) throw UsageError("--service and --ca-file go together");
  run.serviceUrl = options.serviceUrl;
  run.caFile = options.caFile;
  if (options.window) {
#ifdef TAVREL_HAVE_SDL2
    run.target = windowTarget();
#else
    throw UsageError("--window: this tavrel was built without SDL2 (install libsdl2-dev and build again)");
#endif
  }
  return runSessionScript(script, run);
}

void addRunCommand(CLI::App& app, int& exitStatus) {
  struct Arguments {
    std::string script;
    SessionCommandOptions options;
  };
  auto arguments = std::make_shared<Arguments>();
  arguments->options.out = "tavrel-run-out";
  CLI::App* command = app.add_subcommand("run", "Play a session script through the library and report what happened");
  command->add_option("SCRIPT", arguments->script, "the session script")->required();
  addSessionOptions(*command, arguments->options);
  command->callback([arguments, &exitStatus] {
    std::ifstream in(arguments->script, std::ios::binary);
    if (!in) throw UsageError("cannot read '" + arguments->script + "'");
    std::ostringstream text;
    text << in.rdbuf();
    exitStatus = playSessionScript(text.str(), std::filesystem::path(arguments->script).filename().string(),
                                   arguments->options);
  });
}

}  // namespace tavrel::cli
