// tavrel launch-url as a process: parse prints the items as sorted JSON (null for a URL not meant
// for the library), compose writes what parse reads back, and what neither can take exits 2.

#include "support/tool_runner.hpp"

namespace tavrel::testing {
namespace {

const std::string kToken = "TOKENPREFIX-0123456789ab" "USERID-0123456789abcdefg";

using LaunchUrlTool = ToolTest;

TEST_F(LaunchUrlTool, ParsePrintsSortedItemsNullOrEmpty) {
  const std::pair<std::string, std::string> cases[] = {
      {"mygame://validate?launchToken=" + kToken + "&recordingStartedAt=500&gameEventUrl=%252Fg.evt%253Fsig%253Da%252Bb",
       R"({"gameEventUrl":"/g.evt?sig=a%2Bb","launchToken":")" + kToken + R"(","recordingStartedAt":"500"})"},
      {"mygame://validated?launchToken=x", "null"},
      {"mygame://validate?launchToken=%zz", "{}"},
  };
  for (const auto& [url, json] : cases) {
    const ToolRun run = runTool({"launch-url", "parse", url});
    EXPECT_EQ(run.status, 0) << url;
    EXPECT_EQ(run.out, json + "\n");
  }
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
