#include "support/x_server.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tavrel::testing {

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
