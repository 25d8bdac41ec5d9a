#pragma once

// The example games in real windows, with real X input; screenshots kept in the build folder.

#include "support/tool_runner.hpp"

#include <cairo.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrel::testing {

// Polls until `done` holds; the bound is generous, what is checked is the state reached.
bool waitUntil(const std::function<bool()>& done, double seconds = 30.0);
std::string sourcePath(const std::string& relative);

inline const std::string kRefusedToken = std::string(24, 'r') + "PLAYER-ID-OF-24-CHARS-00";

// Accepts the token of 48 'A' and ann:secret-pw; `error` says why not when it did not start.
struct Service {
  std::unique_ptr<Background> process;
  std::string baseUrl, caFile, error;
  // A launch URL carrying `token`, with upload URLs on this service; empty when the tool refused.
  std::string launchUrl(const std::string& scheme, const std::string& token) const;
};
Service startService(const std::string& dir, const std::string& scheme, const std::vector<std::string>& more = {});

struct Box {  // a view's frame in window points
  int x = 0, y = 0, width = 0, height = 0;
  int midX() const { return x + width / 2; }
  int midY() const { return y + height / 2; }
};
struct Found {
  Box box;
  nlohmann::json view;
};
// The first view under `view` (its superview at x, y) that `match` takes.
std::optional<Found> find(const nlohmann::json& view, const std::function<bool(const nlohmann::json&)>& match,
                          double x = 0, double y = 0);

struct Window {  // a top-level window and where it lies on the screen
  std::string id;
  int x0 = 0, y0 = 0, width = 0, height = 0;
};

// A PNG read back with Cairo, seen through a window's place on it.
struct Shot {
  std::shared_ptr<cairo_surface_t> surface;
  Window window;

  bool load(const std::string& path);  // without a window: the whole picture
  std::uint32_t at(int x, int y) const;  // 0xRRGGBB
  // Pixels of the window's rows [top, bottom) and columns [left, right) that pass.
  int count(const std::function<bool(std::uint32_t)>& pass, int top = 0, int bottom = -1, int left = 0,
            int right = -1) const;
};

bool isWhite(std::uint32_t rgb);
bool isLoginOrange(std::uint32_t rgb);  // the Login button's (1, 0.4, 0)
bool isGround(std::uint32_t rgb);       // the example scenes' ground, (30, 90, 50)
bool isMarked(std::uint32_t rgb);       // a touch mark's white at 2/3 over a dark scene

class ExampleWindowTest : public ::testing::Test {
 protected:
  // Starts examples/NAME through `launcher` (else the game itself), until its page and window show;
  // false, the test failed or skipped (no X server), when they did not come.
  bool launch(const std::string& name, std::vector<std::string> launcher = {}, bool build = true,
              const std::string& search = "");
  void TearDown() override;

  // Screenshots until `seen` holds: the X server shows a frame a moment after it is drawn.
  bool shows(const std::string& png, const std::function<bool()>& seen, double seconds = 10.0);
  bool loginButtonShown() const;
  int count(const std::function<bool(std::uint32_t)>& pass, int top = 0) const {
    return shot_.count(pass, top, window_.height);
  }
  // Types ann and secret-pw, each once its field has the focus, until the game may go on.
  void logIn();
  // The left button pressed at `from` and dragged to `to`, until its mark is in the view tree.
  bool fingerDown(Box from, Box to);
  void fingerUp();
  bool marked() const;  // a touch mark in the view tree
  // The window resized by the player (a tiling window manager); the page found again when it is up.
  bool resize(int width, int height);
  bool run(const std::string& command);
  nlohmann::json tree() const;
  bool watermarked() const;  // the watermark's text with the player's id, once in the view tree
  std::string logs() const;  // the game's, the service's and the commands' output

  TemporaryDirectory work_;
  std::string dir_;
  std::optional<XServer> x_;
  Service service_;
  std::unique_ptr<Background> game_;
  std::string shots_;
  Window window_;
  Box username_, password_, login_;
  Shot shot_;

 private:
  bool findPage(int width = 0);
  bool readGeometry();  // the window's place and size on the screen
  bool click(const Box& box);
};

}  // namespace tavrel::testing
