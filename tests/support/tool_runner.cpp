#include "support/tool_runner.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <thread>

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
  std::vector<std::string> envStrings = environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view e(*entry);
    const std::string name(e.substr(0, e.find('=') + 1));
    const auto overrides = [&](const std::string& own) { return own.starts_with(name); };
    if (std::none_of(environment.begin(), environment.end(), overrides)) envStrings.emplace_back(e);
  }
  const auto pointers = [](std::vector<std::string>& strings) {
    std::vector<char*> list;
    for (auto& each : strings) list.push_back(each.data());
    list.push_back(nullptr);
    return list;
  };
  // Files rather than pipes: nothing to drain while the tool runs, however much it writes.
  const TemporaryDirectory outputs;
  const std::string out = outputs.path() + "/out", err = outputs.path() + "/err";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = -1;
  const int spawned =
      ::posix_spawnp(&pid, tool.c_str(), &actions, nullptr, pointers(argvStrings).data(), pointers(envStrings).data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return run;
  int status = 0;
  pid_t reaped = 0;
  while ((reaped = ::waitpid(pid, &status, WNOHANG)) == 0) {
    if (std::chrono::steady_clock::now() > deadline) ::kill(pid, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  run.out = readFile(out);
  run.err = readFile(err);
  run.status = reaped == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

}  // namespace tavrel::testing
