#pragma once

// What the tests of the example games in real windows share: the package installed into a
// scratch prefix and an example built against it, the mock service (tavrel serve) with a
// launch URL whose token it refuses, the game's window found with xdotool, its view tree, and
// screenshots read back with Cairo.

#include "support/x_server.hpp"

#include <cairo.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavrel::testing {

// Runs a shell command with its output appended to `log`; true on status 0.
bool run(const std::string& command, const std::string& log);
// A shell command's standard output.
std::string capture(const std::string& command);
// Polls until `done` holds; the bound is generous, what is checked is the state reached.
bool waitUntil(const std::function<bool()>& done, double seconds = 30.0);
// The rest of the line after `key` in `text`; empty when it is not there.
std::string lineValue(const std::string& text, const std::string& key);

// An X server of its own (DISPLAY set for the game, xdotool and import), the example game
// `name` (examples/NAME) built against the installed package, talking to a tavrel serve that
// accepts only ann:secret-pw, with the environment set for the game (its service, certificate,
// documents, the view tree file). Empty `error` when all went well; `noDisplay` when no X
// server could be started, for the test to skip.
struct ExampleSession {
  std::optional<XServer> x;
  bool noDisplay = false;
  std::string dir;         // the work directory
  std::string log;         // the commands' output
  std::string game;        // the built game's path
  std::string launchUrl;   // carrying the refused token
  std::string treeFile;    // where the game writes its view tree
  std::string error;
  std::unique_ptr<Background> serve;
};
inline const std::string kRefusedToken = std::string(24, 'r') + "PLAYER-ID-OF-24-CHARS-00";
ExampleSession startExampleSession(const std::string& name, const std::string& dir);

// The key window's tree as the game last wrote it; discarded JSON when unreadable.
nlohmann::json readTree(const std::string& path);
// The controller presented over the game's root controller; null when none.
const nlohmann::json& presentedPage(const nlohmann::json& tree);

// A view's frame in window points.
struct Box {
  int x = 0, y = 0, width = 0, height = 0;
  int midX() const { return x + width / 2; }
  int midY() const { return y + height / 2; }
};
// The first view under `view` (whose superview is at x, y) that `match` takes.
std::optional<Box> find(const nlohmann::json& view, const std::function<bool(const nlohmann::json&)>& match,
                        double x = 0, double y = 0);
// The login page once it has slid in (its view at the top; `width` points wide unless 0), as
// the game's view tree shows it: where its two fields and its button are. Nullopt when none
// came in time.
struct LoginPage {
  Box username, password, login;
};
std::optional<LoginPage> waitForLoginPage(const std::string& treeFile, int width = 0);

// A top-level window by its exact name, and where it lies on the screen.
struct Window {
  std::string id;
  int x0 = 0, y0 = 0, width = 0, height = 0;
};
std::optional<Window> findWindow(const std::string& name);

// Real X input (xdotool): a click at the centre of a box of the window; the window focused and
// the page's fields filled with ann and secret-pw; true when every command ran.
bool click(const Window& window, const Box& box, const std::string& log);
bool typeLogin(const Window& window, const LoginPage& page, const std::string& log);
// The game's tree once no page stands over the game; nullopt when the page stayed.
std::optional<nlohmann::json> waitForPageGone(const std::string& treeFile);

// A screenshot of the whole screen (ImageMagick's import), read back with Cairo, seen through
// a window's place on it.
struct Shot {
  std::shared_ptr<cairo_surface_t> surface;
  Window window;

  bool take(const std::string& path, const std::string& log);
  // The window's pixel (x, y) as 0xRRGGBB.
  std::uint32_t at(int x, int y) const;
  // Pixels of the window's rows [top, bottom) and columns [left, right) whose 0xRRGGBB passes.
  int count(const std::function<bool(std::uint32_t)>& pass, int top, int bottom, int left = 0, int right = -1) const;
};

bool isWhite(std::uint32_t rgb);
bool isLoginOrange(std::uint32_t rgb);  // the Login button's (1, 0.4, 0)

}  // namespace tavrel::testing
