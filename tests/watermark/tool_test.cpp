#include "support/tool_runner.hpp"

#include <algorithm>

namespace tavrel::testing {
namespace {

using WatermarkTool = ToolTest;

TEST_F(WatermarkTool, PrintsEveryKthTickAsShortestFloatsAndRepeatsUnderASeed) {
  const ToolRun run = runTool(
      {"watermark", "--behaviour", "2", "--canvas", "844x390", "--text", "300x12", "--ticks", "4", "--every", "2"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 2);
  // 635.3334 reads back as the float 635.33337; three ticks accumulate to -14.000001.
  EXPECT_EQ(run.out.rfind("[[-4.666667,39],[315.33334,39],[635.3334,39],[-4.666667,73.66667],", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("\n[[-14.000001,39],[306,39],[626,39],"), std::string::npos) << run.out;

  const ToolRun seeded = runTool({"watermark", "--behaviour", "3", "--seed", "42", "--ticks", "3"});
  EXPECT_EQ(std::count(seeded.out.begin(), seeded.out.end(), '\n'), 3);
  EXPECT_EQ(runTool({"watermark", "--behaviour", "3", "--seed", "42", "--ticks", "3"}).out, seeded.out);
}

TEST_F(WatermarkTool, RejectsBadInputWithStatusTwo) {
  const std::vector<std::string> cases[] = {{"--behaviour", "4"}, {"--behaviour", "-1"},
                                            {"--canvas", "844"},  {"--canvas", "0x390"},
                                            {"--text", "12x"},    {"--ticks", "-1"},
                                            {"--ticks", "many"},  {"--every", "0"},
                                            {"--seed", "-3"},     {"--canvas", "844x30", "--text", "0x12"}};
  for (std::vector<std::string> arguments : cases) {
    arguments.insert(arguments.begin(), "watermark");
    const ToolRun run = runTool(arguments);
    EXPECT_EQ(run.status, 2) << arguments[1] << " " << arguments[2];
    EXPECT_EQ(run.err.rfind("tavrel: ", 0), 0u) << run.err;
  }
}

}  // namespace
}  // namespace tavrel::testing
