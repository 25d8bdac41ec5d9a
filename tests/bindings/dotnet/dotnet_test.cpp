// The C# binding's checks and its example game, each a Mono program, against the built library
// and a tavrel serve that accepts one token and ann:secret-pw; the game's PNGs read back with Cairo.

#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"
#include "support/window_session.hpp"

#include <cairo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>

namespace tavrel::testing {
namespace {

const std::string kValidToken(48, 'V');

class DotnetBinding : public ::testing::Test {
 protected:
  void SetUp() override {
    serve_ = std::make_unique<Background>(
        std::vector<std::string>{toolPath(), "serve", "--token", kValidToken, "--user", "ann:secret-pw", "--scheme",
                                 "dotnetgame", "--uploads", dir_.path() + "/uploads"},
        dir_.path() + "/serve.log");
    ASSERT_TRUE(waitUntil([&] { return readFile(dir_.path() + "/serve.log").find("launch-url:") != std::string::npos; }));
    const std::string served = readFile(dir_.path() + "/serve.log");
    baseUrl_ = lineValue(served, "base-url: ");
    environment_ = {"TAVREL_CA_FILE=" + lineValue(served, "ca-file: "), "TAVREL_SERVICE_URL=" + baseUrl_,
                    "TAVREL_DOCUMENTS=" + dir_.path() + "/documents", "TAVREL_VALID_TOKEN=" + kValidToken};
  }

  TemporaryDirectory dir_;
  std::unique_ptr<Background> serve_;
  std::string baseUrl_;
  std::vector<std::string> environment_;
};

TEST_F(DotnetBinding, ChecksUnderMono) {
  const ToolRun run = runProgram("mono", {"--debug", DOTNET_BINDING_TEST}, environment_, std::chrono::minutes(2));
  EXPECT_EQ(run.status, 0) << run.out << run.err;
}

// A PNG the game wrote, read as the window tests read screenshots.
Shot picture(const std::string& path) {
  Shot shot;
  shot.surface.reset(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
  shot.window = {"", 0, 0, cairo_image_surface_get_width(shot.surface.get()), cairo_image_surface_get_height(shot.surface.get())};
  return shot;
}

TEST_F(DotnetBinding, ExampleGamePlaysTheGateAndExitsWithTheSession) {
  const std::string refused = std::string(24, 'r') + "PLAYER-ID-OF-24-CHARS-00";
  const ToolRun url = runTool({"launch-url", "compose", "--scheme", "dotnetgame", "--token", refused,
                               "--game-event-url", baseUrl_ + "/g.evt", "--recording-started-at",
                               std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                  std::chrono::system_clock::now().time_since_epoch()).count())});
  ASSERT_EQ(url.status, 0) << url.err;
  const ToolRun game = runProgram(
      "sh", {"-c", "cd \"$0\" && exec mono --debug " DOTNET_GAME " \"$1\" \"$2\"", dir_.path(), refused,
             url.out.substr(0, url.out.find('\n'))},
      environment_, std::chrono::minutes(2));
  EXPECT_EQ(game.status, 255) << game.out << game.err;  // the exit alert's OK
  EXPECT_NE(game.out.find("the session may go on (on the main thread: True)"), std::string::npos) << game.out;

  const Shot page = picture(dir_.path() + "/dotnet_game_page.png");
  ASSERT_EQ(page.window.width, 390);
  ASSERT_EQ(page.window.height, 844);
  EXPECT_GT(page.count(isLoginOrange, 0, 844), 15000);  // the Login button

  // The marks (white, two thirds opaque, premultiplied) where the fingers ended; nothing elsewhere.
  const Shot play = picture(dir_.path() + "/dotnet_game_play.png");
  ASSERT_EQ(play.window.width, 390);
  EXPECT_EQ(play.at(140, 300), 0xaaaaaau);
  EXPECT_EQ(play.at(280, 500), 0xaaaaaau);
  EXPECT_EQ(play.at(20, 20), 0u);

  std::string events;
  for (const auto& file : std::filesystem::directory_iterator(dir_.path() + "/documents")) events += readFile(file.path());
  EXPECT_NE(events.find("{\"a\": \"level-1\", \"e\": \"start\""), std::string::npos);
}

}  // namespace
}  // namespace tavrel::testing
