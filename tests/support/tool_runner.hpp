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

// Runs the tool with these arguments (no shell involved) and waits for it. `environment` holds
// NAME=VALUE entries set for the tool on top of this process's environment.
ToolRun runTool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});

// Runs any program so: `program` is a path, or a name looked up in PATH. One still running
// after `limit` is killed (status -1).
ToolRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment = {},
                   std::chrono::milliseconds limit = std::chrono::minutes(5));

}  // namespace tavrel::testing
