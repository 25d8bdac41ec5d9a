#pragma once

// The shell prints its process id, which the program keeps once exec'd.

#include "support/tool_runner.hpp"

#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tavrel::testing {

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
