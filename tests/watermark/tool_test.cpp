#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct ToolRun {
  int status = -1;
  std::vector<std::string> lines;
};

// Runs `tavrel watermark <arguments>` with stderr folded into the lines.
ToolRun runWatermark(const std::string& arguments) {
  const char* tool = std::getenv("TAVREL_TOOL");
  if (tool == nullptr) return {};
  ToolRun run;
  FILE* pipe = popen(("'" + std::string(tool) + "' watermark " + arguments + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return run;
  std::string line;
  for (int c; (c = std::fgetc(pipe)) != EOF;) {
    if (c != '\n') {
      line += static_cast<char>(c);
    } else {
      run.lines.push_back(line);
      line.clear();
    }
  }
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

class WatermarkTool : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("TAVREL_TOOL") == nullptr) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }
};

TEST_F(WatermarkTool, PrintsEachTickAsShortestFloats) {
  const ToolRun run = runWatermark("--behaviour 2 --canvas 844x390 --text 300x12 --ticks 4 --every 2");
  ASSERT_EQ(run.status, 0);
  ASSERT_EQ(run.lines.size(), 2u);
  // 635.3334 reads back as the float 635.33337; three ticks accumulate to -14.000001.
  EXPECT_EQ(run.lines[0].rfind("[[-4.666667,39],[315.33334,39],[635.3334,39],[-4.666667,73.66667],", 0), 0u)
      << run.lines[0];
  EXPECT_EQ(run.lines[1].rfind("[[-14.000001,39],[306,39],[626,39],", 0), 0u) << run.lines[1];
}

TEST_F(WatermarkTool, SeedMakesTheRunRepeatable) {
  const ToolRun first = runWatermark("--behaviour 3 --seed 42 --ticks 3");
  ASSERT_EQ(first.status, 0);
  EXPECT_EQ(first.lines.size(), 3u);
  EXPECT_EQ(runWatermark("--behaviour 3 --seed 42 --ticks 3").lines, first.lines);
}

TEST_F(WatermarkTool, RejectsBadInputWithStatusTwo) {
  for (const char* arguments :
       {"--behaviour 4", "--behaviour -1", "--canvas 844", "--canvas 0x390", "--text 12x",
        "--canvas 844x30 --text 0x12", "--ticks -1", "--ticks many", "--every 0", "--seed -3"}) {
    const ToolRun run = runWatermark(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    ASSERT_FALSE(run.lines.empty()) << arguments;
    EXPECT_EQ(run.lines.front().rfind("tavrel: ", 0), 0u) << arguments;
  }
}

}  // namespace
