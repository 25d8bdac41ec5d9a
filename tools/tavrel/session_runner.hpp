#pragma once

// Plays a session script through the whole library: a mock service and upload endpoint over
// HTTPS on 127.0.0.1 in this process, the SDK pointed at it, a game on a screen, the player's
// fingers and keys through UIHost, and a frame drawn every 1/60 s of the session's clock.
// Writes everything into one folder (see README, "Scripted sessions") and returns the exit
// status: 0 all checks passed, 1 a check failed, 2 a run error.
//
// By default the session runs on SimPlatform in virtual time; with `realtime` on the Linux
// platform and the wall clock. The library's singleton and platform are process-wide, so one
// process plays one script.
//
// Thread safety: call from the main thread, once per process.

#include "session_script.hpp"

#include <tavrel_sdk/ui/host.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavrel::cli {

// How frames reach the eye: the headless host keeps them; a window shows them.
struct FrameTarget {
  // Makes the host for the script's screen; it is installed before any view is made.
  std::function<std::shared_ptr<UIHost>(CGSize screen, double scale)> makeHost;
  // After each frame is rendered (a window presents it and pumps its events). Returns false
  // when the viewer closed the window: the run stops there as a run error.
  std::function<bool()> afterFrame;
};

struct RunOptions {
  std::filesystem::path out = "tavrel-run-out";
  std::string scriptName = "session";  // in messages: "demo.session:12: ..."
  bool realtime = false;
  std::optional<std::uint64_t> seed;  // replaces the script's
  // False: no frame between snapshots (the benchmark's baseline).
  bool drawFrames = true;
  FrameTarget target;  // empty: headless
  // Another service (`tavrel serve`) at this base URL, trusted through `caFile`, instead of the
  // run's own: the script then sets no `service` and checks no `uploads`.
  std::optional<std::string> serviceUrl;
  std::string caFile;
};

int runSessionScript(const SessionScript& script, const RunOptions& options);

}  // namespace tavrel::cli
