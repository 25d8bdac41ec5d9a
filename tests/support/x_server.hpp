#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tavrel::testing {

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

}  // namespace tavrel::testing
