#pragma once

// Runs the built tavrel tool (its path comes in the environment variable TAVREL_TOOL).

#include <chrono>
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

// Runs the tool with these arguments (no shell involved) and waits for it.
ToolRun runTool(const std::vector<std::string>& arguments);

// Runs a program the same way; one still running after `limit` is killed (status -1).
ToolRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                   std::chrono::milliseconds limit = std::chrono::minutes(5));

}  // namespace tavrel::testing
