// The C# binding's checks and its example game under Mono, against a tavrel serve of their own.

#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"
#include "support/window_session.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

namespace tavrel::testing {
namespace {

class DotnetBinding : public ::testing::Test {
 protected:
  void SetUp() override {
    service_ = startService(dir_.path(), "dotnetgame", {"--uploads", dir_.path() + "/uploads"});
    ASSERT_EQ(service_.error, "");
    environment_ = {"TAVREL_CA_FILE=" + service_.caFile, "TAVREL_SERVICE_URL=" + service_.baseUrl,
                    "TAVREL_DOCUMENTS=" + dir_.path() + "/documents", "TAVREL_VALID_TOKEN=" + std::string(48, 'A'),
                    "TAVREL_SERVE_LOG=" + dir_.path() + "/serve.log"};
  }

  TemporaryDirectory dir_;
  Service service_;
  std::vector<std::string> environment_;
};

TEST_F(DotnetBinding, ChecksUnderMono) {
  const ToolRun run = runProgram("mono", {"--debug", DOTNET_BINDING_TEST}, environment_, std::chrono::minutes(2));
  EXPECT_EQ(run.status, 0) << run.out << run.err;
}

TEST_F(DotnetBinding, ExampleGamePlaysTheGateAndExitsWithTheSession) {
  const std::string url = service_.launchUrl("dotnetgame", kRefusedToken);
  const ToolRun game = runProgram(
      "sh", {"-c", "cd \"$0\" && exec mono --debug " DOTNET_GAME " \"$1\" \"$2\"", dir_.path(), kRefusedToken, url},
      environment_, std::chrono::minutes(2));
  EXPECT_EQ(game.status, 255) << game.out << game.err;  // the exit alert's OK
  EXPECT_NE(game.out.find("the session may go on (on the main thread: True)"), std::string::npos) << game.out;

  Shot page, play;
  ASSERT_TRUE(page.load(dir_.path() + "/dotnet_game_page.png") && play.load(dir_.path() + "/dotnet_game_play.png"));
  ASSERT_EQ(std::tuple(page.window.width, page.window.height, play.window.width), std::tuple(390, 844, 390));
  EXPECT_GT(page.count(isLoginOrange, 0, 844), 15000);  // the Login button

  // The marks (white, two thirds opaque, premultiplied) where the fingers ended; nothing elsewhere.
  // Around each end: the moving watermark's text may cross a mark, never cover most of it.
  const auto marked = [&](int x, int y) {
    return play.count([](std::uint32_t rgb) { return rgb == 0xaaaaaau; }, y - 8, y + 8, x - 8, x + 8) > 128;
  };
  EXPECT_TRUE(marked(140, 300) && marked(280, 500));
  EXPECT_EQ(play.at(20, 20), 0u);

  std::string events;
  for (const auto& file : std::filesystem::directory_iterator(dir_.path() + "/documents")) events += readFile(file.path());
  EXPECT_NE(events.find("{\"a\": \"level-1\", \"e\": \"start\""), std::string::npos);
}

}  // namespace
}  // namespace tavrel::testing
