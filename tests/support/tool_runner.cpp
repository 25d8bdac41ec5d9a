#include "support/tool_runner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <signal.h>
#include <sys/prctl.h>
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

Background::Background(std::vector<std::string> argv, const std::string& log) {
  std::vector<char*> args;
  for (auto& a : argv) args.push_back(a.data());
  args.push_back(nullptr);
  const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    execvp(args[0], args.data());
    _exit(127);
  }
  close(out);
}

Background::~Background() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

bool Background::running() const { return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0; }

std::optional<XServer> startXServer(const std::string& log) {
  int fds[2];
  if (pipe(fds) != 0) return std::nullopt;
  XServer server;
  server.process = std::make_unique<Background>(
      std::vector<std::string>{"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "1024x768x24",
                               "-nolisten", "tcp"},
      log);
  close(fds[1]);
  std::string number;
  pollfd ready{fds[0], POLLIN, 0};
  char c = 0;
  while (poll(&ready, 1, 20000) > 0 && read(fds[0], &c, 1) == 1 && c != '\n') number.push_back(c);
  close(fds[0]);
  if (number.empty() || !server.process->running()) return std::nullopt;
  server.display = ":" + number;
  return server;
}

}  // namespace tavrel::testing
