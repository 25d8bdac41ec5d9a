#pragma once

// `tavrel serve` as a child process with its stdout on a pipe, killed if a test leaves it
// running. The shell prints its process id, which the tool keeps once exec'd; then come the
// start lines ("name: value") in `banner`, up to the launch URL.

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

class ServeProcess {
 public:
  explicit ServeProcess(const std::vector<std::string>& arguments) {
    std::string command = "echo $$; exec '" + toolPath() + "' serve";
    for (const auto& argument : arguments) command += " '" + argument + "'";
    output_ = ::popen(command.c_str(), "r");
    pid_ = std::stoi(readLine());
    for (std::string line; banner.count("launch-url") == 0 && !(line = readLine()).empty();) {
      banner[line.substr(0, line.find(": "))] = line.substr(line.find(": ") + 2);
    }
  }
  ~ServeProcess() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
    if (output_ != nullptr) ::pclose(output_);
  }
  ServeProcess(const ServeProcess&) = delete;
  ServeProcess& operator=(const ServeProcess&) = delete;

  std::string readLine() {
    char line[4096];
    if (std::fgets(line, sizeof line, output_) == nullptr) return {};
    return std::string(line, std::strcspn(line, "\n"));
  }
  // Sends `signal` and waits; the exit status, or -1 when the tool did not exit.
  int finish(int signal) {
    ::kill(std::exchange(pid_, -1), signal);
    const int status = ::pclose(std::exchange(output_, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::map<std::string, std::string> banner;

 private:
  std::FILE* output_ = nullptr;
  pid_t pid_ = -1;
};

}  // namespace tavrel::testing
