#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

struct ToolRun {
  int status = -1;
  std::vector<std::string> lines;  // stdout and stderr
};

class WatermarkTool : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("TAVREL_TOOL") == nullptr) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }

  static ToolRun run(const std::string& arguments) {
    ToolRun result;
    const std::string command = "'" + std::string(std::getenv("TAVREL_TOOL")) + "' watermark " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    std::string line;
    for (int c; (c = std::fgetc(pipe)) != EOF;) {
      if (c == '\n') result.lines.push_back(std::exchange(line, {}));
      else line += static_cast<char>(c);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
  }
};

TEST_F(WatermarkTool, PrintsEveryKthTickAsShortestFloats) {
  const ToolRun result = run("--behaviour 2 --canvas 844x390 --text 300x12 --ticks 4 --every 2");
  ASSERT_EQ(result.status, 0);
  ASSERT_EQ(result.lines.size(), 2u);
  // 635.3334 reads back as the float 635.33337; three ticks accumulate to -14.000001.
  EXPECT_EQ(result.lines[0].rfind("[[-4.666667,39],[315.33334,39],[635.3334,39],[-4.666667,73.66667],", 0), 0u)
      << result.lines[0];
  EXPECT_EQ(result.lines[1].rfind("[[-14.000001,39],[306,39],[626,39],", 0), 0u) << result.lines[1];
}

TEST_F(WatermarkTool, SeedMakesTheRunRepeatable) {
  const ToolRun first = run("--behaviour 3 --seed 42 --ticks 3");
  ASSERT_EQ(first.status, 0);
  EXPECT_EQ(first.lines.size(), 3u);
  EXPECT_EQ(run("--behaviour 3 --seed 42 --ticks 3").lines, first.lines);
}

TEST_F(WatermarkTool, RejectsBadInputWithStatusTwo) {
  for (const char* arguments :
       {"--behaviour 4", "--behaviour -1", "--canvas 844", "--canvas 0x390", "--text 12x",
        "--canvas 844x30 --text 0x12", "--ticks -1", "--ticks many", "--every 0", "--seed -3"}) {
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    ASSERT_FALSE(result.lines.empty()) << arguments;
    EXPECT_EQ(result.lines.front().rfind("tavrel: ", 0), 0u) << arguments;
  }
}

}  // namespace
