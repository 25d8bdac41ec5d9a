// `tavrel serve` as a child process, answering the library over HTTPS.

#include "backend/validation.hpp"
#include "session/launch_url.hpp"

#include "loopback_service.hpp"
#include "support/sandbox.hpp"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <future>
#include <map>
#include <string>
#include <vector>

extern char** environ;

namespace tavrel::testing {
namespace {

using namespace std::chrono_literals;

const std::string kGoodToken = "serve-token-0123456789abcdefghijABCDEFGHIJ0123456789";

// The built tool with its stdout and stderr on pipes; killed if a test leaves it running.
class Tool {
 public:
  explicit Tool(std::vector<std::string> arguments) {
    const char* path = std::getenv("TAVREL_TOOL");
    if (path == nullptr || *path == '\0') return;
    arguments.insert(arguments.begin(), path);
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    int out[2], err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    if (posix_spawn(&pid_, path, &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    out_ = out[0];
    err_ = err[0];
  }
  ~Tool() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) ::close(out_);
    if (err_ >= 0) ::close(err_);
  }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  bool started() const { return pid_ > 0; }

  // The next line of stdout; empty at its end or when none comes within `timeout`.
  std::string readLine(std::chrono::milliseconds timeout = 20s) {
    for (;;) {
      if (const auto end = buffer_.find('\n'); end != std::string::npos) {
        std::string line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return line;
      }
      pollfd ready{out_, POLLIN, 0};
      if (::poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) return {};
      char chunk[4096];
      const ssize_t n = ::read(out_, chunk, sizeof chunk);
      if (n <= 0) return {};
      buffer_.append(chunk, static_cast<std::size_t>(n));
    }
  }

  // The start lines, "name: value", up to the launch URL, which comes last.
  std::map<std::string, std::string> readBanner() {
    std::map<std::string, std::string> banner;
    while (banner.count("launch-url") == 0) {
      const std::string line = readLine();
      const auto colon = line.find(": ");
      if (colon == std::string::npos) break;
      banner[line.substr(0, colon)] = line.substr(colon + 2);
    }
    return banner;
  }

  // Sends `signal` (none: waits for the tool to end by itself); the exit status, or -1.
  int finish(int signal = 0) {
    if (signal != 0) ::kill(pid_, signal);
    int status = 0;
    const pid_t done = ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return done > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string errors() {
    std::string text;
    char chunk[4096];
    ssize_t n;
    while ((n = ::read(err_, chunk, sizeof chunk)) > 0) text.append(chunk, static_cast<std::size_t>(n));
    return text;
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string buffer_;
};

class ServeTest : public LoopbackServiceTest {
 protected:
  void SetUp() override {
    // The fixture's own server stays idle: the library is pointed at the tool's.
    if (std::getenv("TAVREL_TOOL") == nullptr) GTEST_SKIP() << "TAVREL_TOOL names no tool";
  }

  // Runs serve and points the library at it; the banner it printed.
  std::map<std::string, std::string> serve(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "serve");
    tool_ = std::make_unique<Tool>(std::move(arguments));
    EXPECT_TRUE(tool_->started());
    auto banner = tool_->readBanner();
    EXPECT_EQ(banner.size(), 4u) << tool_->errors();
    point(banner["base-url"], banner["ca-file"]);
    return banner;
  }

  std::unique_ptr<Tool> tool_;
};

TEST_F(ServeTest, AnswersTheLibraryEndToEnd) {
  TemporaryDirectory uploads;
  const auto banner = serve({"--token", "short", "--token", kGoodToken, "--user", "alice:pa:ss",
                             "--uploads", uploads.path(), "--scheme", "mygame"});
  const std::string base = banner.at("base-url");
  EXPECT_EQ(base.rfind("https://127.0.0.1:", 0), 0u);

  // The launch URL carries the first token a game can take, and uploads go back to the tool.
  const auto launch = readLaunchUrl(banner.at("launch-url"));
  ASSERT_EQ(launch.outcome, LaunchUrlReading::Outcome::Parsed) << launch.problem;
  EXPECT_EQ(launch.items.at("launchToken"), kGoodToken);
  const std::string gameEventUrl = launch.items.at("gameEventUrl");
  EXPECT_EQ(gameEventUrl.rfind(base + "/", 0), 0u);

  EXPECT_TRUE(roundTrip([](Completion done) { Validation::validate(kGoodToken, std::move(done)); }));
  EXPECT_TRUE(roundTrip([](Completion done) { Validation::validate("short", std::move(done)); }));
  EXPECT_FALSE(roundTrip([](Completion done) { Validation::validate("wrong", std::move(done)); }));
  EXPECT_FALSE(roundTrip([](Completion done) { Validation::validate(std::nullopt, std::move(done)); }));
  EXPECT_TRUE(roundTrip([](Completion done) {
    Validation::loginWithUsername("alice", "pa:ss", "mygame", std::move(done));
  }));
  EXPECT_FALSE(roundTrip([](Completion done) {
    Validation::loginWithUsername("alice", "pa:sS", "mygame", std::move(done));
  }));
  EXPECT_FALSE(roundTrip([](Completion done) {
    Validation::loginWithUsername("alice", "pa:ss", "", std::move(done));
  }));

  std::promise<long> put;
  Platform::current().dataTask({gameEventUrl, "PUT", {}, "GEV\n1\n"},
                               [&put](UrlResponse response) { put.set_value(response.statusCode); });
  EXPECT_EQ(put.get_future().get(), 200);
  const std::string stored = uploads.path() + "/" +
                             endpoint::HttpsServer::uploadFileName(gameEventUrl.substr(base.size()));
  EXPECT_EQ(readFile(stored), "GEV\n1\n");

  // One line per request, and no secret in any of them.
  std::vector<std::string> lines;
  for (int i = 0; i < 8; ++i) lines.push_back(tool_->readLine());
  EXPECT_EQ(lines[0], "GET /m/launch/project/validate 200 0");
  EXPECT_EQ(lines[4].rfind("POST /m/launch/project/auth/ios 200 ", 0), 0u) << lines[4];
  EXPECT_EQ(lines[7], "PUT /game-events.evt 200 6");
  for (const auto& line : lines) {
    EXPECT_EQ(line.find(kGoodToken), std::string::npos) << line;
    EXPECT_EQ(line.find("pa:ss"), std::string::npos) << line;
  }
  EXPECT_EQ(tool_->finish(SIGTERM), 0);
}

TEST_F(ServeTest, WithoutTokensTheLaunchUrlCarriesAGeneratedOne) {
  const auto banner = serve({});
  const auto launch = readLaunchUrl(banner.at("launch-url"));
  ASSERT_EQ(launch.outcome, LaunchUrlReading::Outcome::Parsed);
  const std::string token = launch.items.at("launchToken");
  EXPECT_EQ(token.size(), 48u);
  EXPECT_TRUE(roundTrip([&](Completion done) { Validation::validate(token, std::move(done)); }));
  EXPECT_EQ(tool_->finish(SIGINT), 0);
}

TEST_F(ServeTest, ALoginBodyOtherThanTheLibrarysGets400) {
  serve({"--user", "alice:pw"});
  const std::vector<std::string> bodies = {
      "", "not json", "[]", R"("alice")", R"({"username":"alice","password":"pw"})",
      R"({"username":"alice","password":1,"urlScheme":"g"})",
  };
  for (const auto& body : bodies) {
    std::promise<UrlResponse> reply;
    Platform::current().dataTask(
        {Validation::serviceBaseUrl() + std::string(kLoginPath), "POST", {}, body},
        [&reply](UrlResponse response) { reply.set_value(std::move(response)); });
    const UrlResponse response = reply.get_future().get();
    EXPECT_EQ(response.statusCode, 400) << body;
    EXPECT_EQ(response.data, R"({"authed":false})") << body;
  }
  EXPECT_EQ(tool_->finish(SIGTERM), 0);
}

TEST(ServeArguments, BadArgumentsExitWith2AndSayWhy) {
  if (std::getenv("TAVREL_TOOL") == nullptr) GTEST_SKIP() << "TAVREL_TOOL names no tool";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--user", "alice"}, "--user"},
      {{"--tokens", "/nonexistent/tokens"}, "--tokens"},
      {{"--token", " padded"}, "--token"},
      {{"--scheme", "1game"}, "--scheme"},
      {{"--port", "70000"}, "--port"},
  };
  for (const auto& [arguments, mention] : cases) {
    std::vector<std::string> all = {"serve"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Tool tool(all);
    ASSERT_TRUE(tool.started());
    EXPECT_EQ(tool.finish(), 2) << mention;
    EXPECT_NE(tool.errors().find(mention), std::string::npos) << mention;
  }
}

}  // namespace
}  // namespace tavrel::testing
