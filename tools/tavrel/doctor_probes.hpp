#pragma once

// What `tavrel doctor` asks of the machine's display, OpenGL and Vulkan: each through the loader
// library opened at run time (dlopen), with the few entry points it needs declared here, so the
// tool builds and runs where none of them is installed.

#include <string>

namespace tavrel::cli {

struct ProbeResult {
  bool ok = false;
  std::string detail;  // what was found, or what went wrong
};

// $DISPLAY opened through libX11, or $WAYLAND_DISPLAY's socket connected to.
ProbeResult probeDisplay();
// An OpenGL context made through EGL (surfaceless where Mesa offers it, else the default
// display): its version and renderer.
ProbeResult probeOpenGl();
// The Vulkan loader's version, an instance, and its physical devices.
ProbeResult probeVulkan();

}  // namespace tavrel::cli
