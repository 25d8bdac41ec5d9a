#pragma once

// What the render verbs share: their screen options and a simulated screen to draw on.
//
//   RenderOptions options;            // filled by addRenderOptions()
//   RenderScreen screen(options);     // a SimPlatform, a headless host, a key window
//   screen.root().presentViewController(page, true, nullptr);
//   screen.run(1.0);                  // the main loop, in virtual time
//   return screen.writeOutputs();     // the PNG, and the tree when asked
//
// Main thread only, one RenderScreen at a time (it installs the platform and the host).

#include "commands.hpp"

#include <tavrel_sdk/ui.hpp>

#include "platform/sim_platform.hpp"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tavrel::cli {

struct RenderOptions {
  std::string size = "390x844";  // points, WxH
  double scale = 3.0;
  std::string output;  // the PNG
  std::optional<std::string> tree;  // the view tree as JSON, when set
};

// --size, --scale, -o/--output (required) and --tree.
void addRenderOptions(CLI::App& command, RenderOptions& options);

// "WxH" in points, each from 1 to 10000; UsageError naming `option` otherwise.
CGSize parseScreenSize(std::string_view text, std::string_view option = "--size");

class RenderScreen {
 public:
  // Installs `platform` (a new SimPlatform when null) and a headless host of the options' size
  // and scale (UsageError when out of range), then shows a key window whose root view
  // controller stands for the game's.
  explicit RenderScreen(const RenderOptions& options, std::shared_ptr<SimPlatform> platform = nullptr);
  // Lets the window go, then stops the platform's threads. Drop views of your own first.
  ~RenderScreen();
  RenderScreen(const RenderScreen&) = delete;
  RenderScreen& operator=(const RenderScreen&) = delete;

  SimPlatform& platform() { return *platform_; }
  UIHost& host() { return UIHost::current(); }
  UIWindow& window() { return *window_; }
  UIViewController& root() { return *root_; }

  // Runs the main loop for `seconds` of virtual time (transitions, timers, replies).
  void run(double seconds);
  // Writes the PNG and, when asked, the tree. 0, or 1 after a message on stderr.
  int writeOutputs();

 private:
  RenderOptions options_;
  std::shared_ptr<SimPlatform> platform_;
  std::shared_ptr<UIWindow> window_;
  std::shared_ptr<UIViewController> root_;
};

}  // namespace tavrel::cli
