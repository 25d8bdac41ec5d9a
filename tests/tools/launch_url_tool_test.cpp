#include "support/tool_runner.hpp"

namespace tavrel::testing {
namespace {

const std::string kToken = "TOKENPREFIX-0123456789ab" "USERID-0123456789abcdefg";

using LaunchUrlTool = ToolTest;

TEST_F(LaunchUrlTool, ParsesComposesAndRefusesWithStatusTwo) {
  const std::string composed = runTool({"launch-url", "compose", "--scheme", "mygame", "--token", kToken,
                                        "--game-event-url", "https://h/g.evt?sig=a%2Fb&exp=9",
                                        "--recording-started-at", "1773061533000"})
                                   .out;
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string out, err = {};
  } cases[] = {
      {{"parse", composed.substr(0, composed.size() - 1)},
       0, R"({"gameEventUrl":"https://h/g.evt?sig=a%2Fb&exp=9","launchToken":")" + kToken +
              R"(","recordingStartedAt":"1773061533000"})" "\n"},
      {{"parse", "mygame://validated?launchToken=x"}, 0, "null\n"},
      {{"parse", "mygame://validate?launchToken=%zz"}, 0, "{}\n"},
      {{"parse", "mygame://validate"}, 2, "", "no query"},
      {{"parse", "mygame://validate?launchToken"}, 2, "", "has no \"=\""},
      {{"parse", "mygame://validate?launchToken=%25zz"}, 2, "", "opens no escape"},
      {{"compose", "--scheme", "mygame", "--token", kToken.substr(1)}, 2, "", "47 characters"},
      {{"compose", "--token", kToken}, 2, "", "--scheme"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments{"launch-url"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    const ToolRun run = runTool(arguments);
    EXPECT_EQ(std::tie(run.status, run.out), std::tie(c.status, c.out)) << c.arguments[1];
    EXPECT_NE(run.err.find(c.err), std::string::npos) << c.arguments[1] << ": " << run.err;
  }
  EXPECT_EQ(runTool({"--version"}).out, "tavrel 1.0.0\n");
}

}  // namespace
}  // namespace tavrel::testing
