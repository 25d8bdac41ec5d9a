#include "support/tool_runner.hpp"

#include <gtest/gtest.h>

namespace tavrel::testing {
namespace {

const std::string kToken = "TOKENPREFIX-0123456789ab" "USERID-0123456789abcdefg";

class LaunchUrlTool : public ::testing::Test {
 protected:
  void SetUp() override {
    if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }
};

TEST_F(LaunchUrlTool, ParsePrintsSortedItemsNullOrEmpty) {
  auto run = runTool({"launch-url", "parse",
                      "mygame://validate?launchToken=" + kToken +
                          "&gameEventUrl=%252Fg.evt%253Fsig%253Da%252Bb%2526exp%253D9"
                          "&inputEventUrl=%2Fi.evt%3Fsig%3Dc%26exp%3D9&recordingStartedAt=500"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, R"({"gameEventUrl":"/g.evt?sig=a%2Bb&exp=9","inputEventUrl":"/i.evt?sig=c&exp=9",)"
                     R"("launchToken":")" + kToken + R"(","recordingStartedAt":"500"})" "\n");

  run = runTool({"launch-url", "parse", "mygame://validated?launchToken=x"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "null\n");

  run = runTool({"launch-url", "parse", "mygame://validate?launchToken=%zz"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{}\n");
}

TEST_F(LaunchUrlTool, UrlsOutsideTheFormatExitTwoWithAReason) {
  const std::pair<const char*, const char*> cases[] = {
      {"mygame://validate", "no query"},
      {"mygame://validate?launchToken", "has no \"=\""},
      {"mygame://validate?launchToken=%25zz", "opens no escape"},
  };
  for (const auto& [url, reason] : cases) {
    const auto run = runTool({"launch-url", "parse", url});
    EXPECT_EQ(run.status, 2) << url;
    EXPECT_TRUE(run.out.empty()) << url;
    EXPECT_NE(run.err.find(reason), std::string::npos) << url << ": " << run.err;
  }
}

TEST_F(LaunchUrlTool, ComposePrintsAUrlParseReadsBackOrRefusesWithStatusTwo) {
  auto composed = runTool({"launch-url", "compose", "--scheme", "mygame", "--token", kToken, "--game-event-url",
                           "https://h/g.evt?sig=a%2Fb&exp=9", "--recording-started-at", "1773061533000"});
  ASSERT_EQ(composed.status, 0) << composed.err;
  composed.out.pop_back();
  EXPECT_EQ(runTool({"launch-url", "parse", composed.out}).out,
            R"({"gameEventUrl":"https://h/g.evt?sig=a%2Fb&exp=9","launchToken":")" + kToken +
                R"(","recordingStartedAt":"1773061533000"})" "\n");
  const auto refused = runTool({"launch-url", "compose", "--scheme", "mygame", "--token", kToken.substr(1)});
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.err.find("47 characters"), std::string::npos) << refused.err;
  EXPECT_EQ(runTool({"launch-url", "compose", "--token", kToken}).status, 2);  // --scheme is required
  EXPECT_EQ(runTool({"--version"}).out, "tavrel 1.0.0\n");
}

}  // namespace
}  // namespace tavrel::testing
