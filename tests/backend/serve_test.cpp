#include "session/launch_url.hpp"

#include "loopback_service.hpp"
#include "support/sandbox.hpp"
#include "support/serve_process.hpp"
#include "support/tool_runner.hpp"

#include <signal.h>

#include <array>
#include <utility>

namespace tavrel::testing {
namespace {

const std::string kToken = "serve-token-0123456789abcdefghijABCDEFGHIJ0123456789";

UrlResponse send(UrlRequest request) {
  std::promise<UrlResponse> reply;
  Platform::current().dataTask(std::move(request), [&reply](UrlResponse r) { reply.set_value(std::move(r)); });
  return reply.get_future().get();
}

class ServeTest : public LoopbackServiceTest {
 protected:
  void SetUp() override {
    if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }
};

TEST_F(ServeTest, AnswersTheLibraryEndToEnd) {
  TemporaryDirectory uploads;
  ServeProcess tool({"--token", "short", "--token", kToken, "--refuse-token", "refused", "--user", "alice:pa:ss",
              "--user", "bob:pw", "--refuse-user", "bob", "--fail-uploads", "1", "--slow", "1", "--uploads",
              uploads.path()});
  point(tool.banner["base-url"], tool.banner["ca-file"]);
  const std::string base = tool.banner["base-url"];
  const auto launch = readLaunchUrl(tool.banner["launch-url"]);
  ASSERT_EQ(launch.outcome, LaunchUrlReading::Outcome::Parsed) << tool.banner["launch-url"];
  EXPECT_EQ(launch.items.at("launchToken"), kToken);  // the first token a game can take
  const std::string upload = launch.items.at("gameEventUrl");
  ASSERT_EQ(upload.rfind(base + "/", 0), 0u);

  EXPECT_EQ((std::array{validated(kToken), validated("short"), validated("refused"), validated("wrong"),
                        validated(std::nullopt)}),
            (std::array{true, true, false, false, false}));
  EXPECT_EQ((std::array{loggedIn("alice", "pa:ss"), loggedIn("alice", "pa:sS"), loggedIn("alice", "pa:ss", ""),
                        loggedIn("bob", "pw")}),
            (std::array{true, false, false, false}));
  EXPECT_EQ(send({upload, "PUT", {}, "GEV\n1\n"}).statusCode, 500);
  EXPECT_EQ(send({upload, "PUT", {}, "GEV\n1\n"}).statusCode, 200);
  const std::string path = upload.substr(base.size());
  EXPECT_EQ(readFile(uploads.path() + "/" + endpoint::HttpsServer::uploadFileName(path)), "GEV\n1\n");
  // Each upload is kept under its path, flat, with no way out of the folder.
  EXPECT_EQ(std::tuple(endpoint::HttpsServer::uploadFileName("/s1/g.evt?x=1"), endpoint::HttpsServer::uploadFileName("/..")),
            std::tuple("s1_g.evt_x_1", "__"));
  // Bodies other than the library's: refused, not a crash.
  for (const char* body : {"", "[]", R"({"username":"alice","password":"pa:ss"})",
                           R"({"username":"alice","password":1,"urlScheme":"g"})"}) {
    const auto reply = send({base + std::string(kLoginPath), "POST", {}, body});
    EXPECT_EQ(std::tie(reply.statusCode, reply.data), std::tuple(400, R"({"authed":false})")) << body;
  }

  // Refused outright, or answered without the key: both read as false.
  const std::string validate = "GET /m/launch/project/validate ";
  const std::string login = "POST /m/launch/project/auth/ios ";
  const std::vector<std::string> expected = {
      validate + "200", validate + "200", validate + "200", validate + "401", validate + "401",
      login + "200",    login + "401",    login + "401",    login + "200",    "PUT " + path + " 500",
      "PUT " + path + " 200", login + "400", login + "400", login + "400", login + "400"};
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const std::string line = tool.readLine();
    EXPECT_TRUE(line.find(kToken) == std::string::npos && line.find("pa:ss") == std::string::npos) << line;
    lines.push_back(line.substr(0, line.rfind(' ')));  // without the byte count
  }
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(tool.finish(SIGTERM), 0);
}

TEST_F(ServeTest, WithoutTokensTheLaunchUrlCarriesAGeneratedOne) {
  ServeProcess tool({});
  point(tool.banner["base-url"], tool.banner["ca-file"]);
  const std::string token = readLaunchUrl(tool.banner["launch-url"]).items["launchToken"];
  EXPECT_EQ(token.size(), 48u);
  EXPECT_TRUE(validated(token));
  EXPECT_EQ(tool.finish(SIGINT), 0);
}

TEST_F(ServeTest, BadArgumentsExitWith2AndNameTheOption) {
  for (const auto& [option, value] :
       {std::pair{"--user", "alice"}, {"--tokens", "/nonexistent"}, {"--token", " padded"}, {"--refuse-token", ""},
        {"--scheme", "1game"}, {"--port", "70000"}, {"--slow", "-1"}, {"--fail-uploads", "-1"}}) {
    const ToolRun run = runTool({"serve", option, value});
    EXPECT_EQ(run.status, 2) << option;
    EXPECT_NE(run.err.find(option), std::string::npos) << run.err;
  }
}

}  // namespace
}  // namespace tavrel::testing
