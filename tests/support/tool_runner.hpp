#pragma once

// The programs tests run: the built tavrel tool (its path in the environment variable
// TAVREL_TOOL) or any other, to its end, in the background, or reading its output line by line.

#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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

// SIGTERM when the handle goes, or when the test ends any other way (a time-out kills it).
class Background {
 public:
  Background(std::vector<std::string> argv, const std::string& log);
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  bool running() const;

 private:
  pid_t pid_ = -1;
};

// An X server on the first free display, which it names through -displayfd.
struct XServer {
  std::unique_ptr<Background> process;
  std::string display;  // ":N"
};

// Nullopt when none can be started (no Xvfb); its output goes to `log`.
std::optional<XServer> startXServer(const std::string& log);

// The shell prints its process id, which the program keeps once exec'd.
class ChildProcess {
 public:
  explicit ChildProcess(const std::vector<std::string>& command) {
    std::string line = "echo $$; exec";
    for (const auto& word : command) line += " '" + word + "'";
    output_ = ::popen(line.c_str(), "r");
    pid_ = std::stoi(readLine());
  }
  ~ChildProcess() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
    if (output_ != nullptr) ::pclose(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next line without its end; empty at the end of the output.
  std::string readLine() {
    char line[4096];
    if (std::fgets(line, sizeof line, output_) == nullptr) return {};
    return std::string(line, std::strcspn(line, "\n"));
  }
  bool ended() const { return std::feof(output_) != 0; }
  // Sends `signal` and waits; the exit status, or -1 when the program did not exit.
  int finish(int signal) {
    ::kill(std::exchange(pid_, -1), signal);
    const int status = ::pclose(std::exchange(output_, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  std::FILE* output_ = nullptr;
  pid_t pid_ = -1;
};

// `tavrel serve`, with its start lines ("name: value") in `banner`, up to the launch URL.
class ServeProcess : public ChildProcess {
 public:
  explicit ServeProcess(std::vector<std::string> arguments) : ChildProcess(withTool(std::move(arguments))) {
    for (std::string line; banner.count("launch-url") == 0 && !(line = readLine()).empty();) {
      banner[line.substr(0, line.find(": "))] = line.substr(line.find(": ") + 2);
    }
  }

  std::map<std::string, std::string> banner;

 private:
  static std::vector<std::string> withTool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {toolPath(), "serve"});
    return arguments;
  }
};

}  // namespace tavrel::testing
