#pragma once

// Runs the built tavrel tool (its path in the environment variable TAVREL_TOOL), or any program.

#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

namespace tavrel::testing {

struct ToolRun {
  int status = -1;  // the exit status; -1 when the tool did not exit normally
  std::string out;  // stdout
  std::string err;  // stderr
};

// The tool's path, or empty when TAVREL_TOOL is not set.
std::string toolPath();

// No shell involved; `environment`: NAME=VALUE entries on top of this process's.
ToolRun runTool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});

// Runs any program so, by path or by name in PATH; one still running after `limit` is killed (-1).
ToolRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment = {},
                   std::chrono::milliseconds limit = std::chrono::minutes(5));

// Fixture: skipped where the tool is not built; files for it in a fresh directory.
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }
  // Writes `bytes` to `name` in the directory; its path.
  std::string write(const std::string& name, const std::string& bytes) {
    const std::string path = directory_.path() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  TemporaryDirectory directory_;
};

}  // namespace tavrel::testing
