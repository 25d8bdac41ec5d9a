// `tavrel serve` as a child process, answering the library over HTTPS.

#include "backend/validation.hpp"
#include "session/launch_url.hpp"

#include "loopback_service.hpp"
#include "support/sandbox.hpp"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <future>
#include <map>
#include <utility>

extern char** environ;

namespace tavrel::testing {
namespace {

const std::string kToken = "serve-token-0123456789abcdefghijABCDEFGHIJ0123456789";

// The built tool, its stdout and stderr on one pipe; killed if a test leaves it running.
class Tool {
 public:
  explicit Tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::getenv("TAVREL_TOOL"));
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int pipe[2];
    EXPECT_EQ(::pipe(pipe), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipe[1], STDERR_FILENO);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    output_ = ::fdopen(pipe[0], "r");
  }
  ~Tool() {
    if (pid_ > 0) ::kill(pid_, SIGKILL), ::waitpid(pid_, nullptr, 0);
    std::fclose(output_);
  }

  std::string readLine() {
    char line[4096];
    if (std::fgets(line, sizeof line, output_) == nullptr) return {};
    return std::string(line, std::strcspn(line, "\n"));
  }
  // Sends `signal` (0: none) and waits; the exit status, or -1 when the tool did not exit.
  int finish(int signal = 0) {
    if (signal != 0) ::kill(pid_, signal);
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  std::FILE* output_ = nullptr;
};

class ServeTest : public LoopbackServiceTest {
 protected:
  void SetUp() override {
    if (std::getenv("TAVREL_TOOL") == nullptr) GTEST_SKIP() << "TAVREL_TOOL names no tool";
  }
  // Starts `tavrel serve`, reads its start lines ("name: value") and points the library at it.
  std::map<std::string, std::string> serve(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "serve");
    tool_ = std::make_unique<Tool>(std::move(arguments));
    std::map<std::string, std::string> banner;
    for (std::string line; banner.count("launch-url") == 0 && !(line = tool_->readLine()).empty();) {
      banner[line.substr(0, line.find(": "))] = line.substr(line.find(": ") + 2);
    }
    point(banner["base-url"], banner["ca-file"]);
    return banner;
  }
  // A request the library would never send.
  UrlResponse send(UrlRequest request) {
    std::promise<UrlResponse> reply;
    Platform::current().dataTask(std::move(request),
                                 [&reply](UrlResponse r) { reply.set_value(std::move(r)); });
    return reply.get_future().get();
  }
  std::unique_ptr<Tool> tool_;
};

TEST_F(ServeTest, AnswersTheLibraryEndToEnd) {
  TemporaryDirectory uploads;
  auto banner = serve({"--token", "short", "--token", kToken, "--user", "alice:pa:ss", "--uploads",
                       uploads.path()});
  const std::string base = banner["base-url"];
  const auto launch = readLaunchUrl(banner["launch-url"]);
  ASSERT_EQ(launch.outcome, LaunchUrlReading::Outcome::Parsed) << banner["launch-url"];
  EXPECT_EQ(launch.items.at("launchToken"), kToken);  // the first token a game can take
  const std::string upload = launch.items.at("gameEventUrl");
  ASSERT_EQ(upload.rfind(base + "/", 0), 0u);

  EXPECT_TRUE(roundTrip([](Completion done) { Validation::validate(kToken, std::move(done)); }));
  EXPECT_TRUE(roundTrip([](Completion done) { Validation::validate("short", std::move(done)); }));
  EXPECT_FALSE(roundTrip([](Completion done) { Validation::validate("wrong", std::move(done)); }));
  EXPECT_FALSE(roundTrip([](Completion done) { Validation::validate(std::nullopt, std::move(done)); }));
  for (const auto& c : {std::tuple{"pa:ss", "game", true}, {"pa:sS", "game", false}, {"pa:ss", "", false}}) {
    EXPECT_EQ(roundTrip([&c](Completion done) {
                Validation::loginWithUsername("alice", std::get<0>(c), std::get<1>(c), std::move(done));
              }),
              std::get<2>(c))
        << std::get<0>(c) << " " << std::get<1>(c);
  }
  EXPECT_EQ(send({upload, "PUT", {}, "GEV\n1\n"}).statusCode, 200);
  const std::string path = upload.substr(base.size());
  EXPECT_EQ(readFile(uploads.path() + "/" + endpoint::HttpsServer::uploadFileName(path)), "GEV\n1\n");
  // Bodies other than the library's: refused, not a crash.
  for (const char* body : {"", "[]", R"({"username":"alice","password":"pa:ss"})",
                           R"({"username":"alice","password":1,"urlScheme":"g"})"}) {
    const auto reply = send({base + std::string(kLoginPath), "POST", {}, body});
    EXPECT_EQ(std::tie(reply.statusCode, reply.data), std::tuple(400, R"({"authed":false})")) << body;
  }

  std::vector<std::string> lines;
  for (int i = 0; i < 12; ++i) lines.push_back(tool_->readLine());
  EXPECT_EQ(lines[0], "GET /m/launch/project/validate 200 0");
  EXPECT_EQ(lines[7], "PUT " + path + " 200 6");
  EXPECT_EQ(lines[8], "POST /m/launch/project/auth/ios 400 0");
  for (const auto& line : lines) {
    EXPECT_TRUE(line.find(kToken) == std::string::npos && line.find("pa:ss") == std::string::npos) << line;
  }
  EXPECT_EQ(tool_->finish(SIGTERM), 0);
}

TEST_F(ServeTest, WithoutTokensTheLaunchUrlCarriesAGeneratedOne) {
  const std::string token = readLaunchUrl(serve({})["launch-url"]).items["launchToken"];
  EXPECT_EQ(token.size(), 48u);
  EXPECT_TRUE(roundTrip([&](Completion done) { Validation::validate(token, std::move(done)); }));
  EXPECT_EQ(tool_->finish(SIGINT), 0);
}

TEST_F(ServeTest, BadArgumentsExitWith2AndNameTheOption) {
  for (const auto& [option, value] :
       {std::pair{"--user", "alice"}, {"--tokens", "/nonexistent"}, {"--token", " padded"},
        {"--scheme", "1game"}, {"--port", "70000"}}) {
    Tool tool({"serve", option, value});
    EXPECT_NE(tool.readLine().find(option), std::string::npos) << option;
    EXPECT_EQ(tool.finish(), 2) << option;
  }
}

}  // namespace
}  // namespace tavrel::testing
