#include "support/tool_runner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

extern char** environ;

namespace tavrel::testing {

std::string toolPath() {
  const char* path = std::getenv("TAVREL_TOOL");
  return path ? path : "";
}

ToolRun runTool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  const std::string tool = toolPath();
  return tool.empty() ? ToolRun{} : runProgram(tool, arguments, environment);
}

ToolRun runProgram(const std::string& tool, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment, std::chrono::milliseconds limit) {
  ToolRun run;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::vector<std::string> argvStrings{tool};
  argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& a : argvStrings) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::vector<std::string> envStrings = environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view e(*entry);
    const std::string name(e.substr(0, e.find('=') + 1));
    bool overridden = false;
    for (const auto& own : environment) overridden = overridden || own.starts_with(name);
    if (!overridden) envStrings.emplace_back(e);
  }
  std::vector<char*> envp;
  for (auto& e : envStrings) envp.push_back(e.data());
  envp.push_back(nullptr);

  int outPipe[2], errPipe[2];
  if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0) return run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
  pid_t pid = -1;
  const int spawned = ::posix_spawnp(&pid, tool.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  if (spawned != 0) {
    ::close(outPipe[0]);
    ::close(errPipe[0]);
    return run;
  }
  // Both pipes are drained together so that neither can fill up and stall the tool.
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&run.out, &run.err};
  int open = 2;
  while (open > 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      ::kill(pid, SIGKILL);
      break;
    }
    if (::poll(fds, 2, static_cast<int>(left.count())) < 0) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
      char buffer[4096];
      const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<std::size_t>(n));
      } else {
        ::close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (const pollfd& fd : fds) {
    if (fd.fd >= 0) ::close(fd.fd);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

}  // namespace tavrel::testing
