// The library's two requests against a service of our own on 127.0.0.1, and `tavrel serve` answering them.

#include <tavrel_sdk/platform.hpp>

#include "backend/validation.hpp"
#include "endpoint/https_server.hpp"
#include "session/launch_url.hpp"
#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>

#include <array>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tavrel::testing {
namespace {

// What `start` passed its completion; a second call would throw and end the test program.
template <typename Start>
bool awaited(Start start) {
  auto promise = std::make_shared<std::promise<bool>>();
  auto result = promise->get_future();
  start([promise](bool value) { promise->set_value(value); });
  const bool came = result.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  EXPECT_TRUE(came) << "no completion";
  return came && result.get();
}

void point(const std::string& baseUrl, const std::string& caFile) {
  auto platform = Platform::makeLinux();
  platform->setTrustedCertificatesFile(caFile);
  platform->setServiceBaseUrlForTesting(baseUrl);
  Platform::install(std::move(platform));
}

class LoopbackServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.start();
    point(server_.baseUrl(), server_.caFile());
  }
  void TearDown() override { Platform::install(nullptr); }

  static bool validated(const std::optional<std::string>& token) {
    return awaited([&](Completion done) { Validation::validate(token, done); });
  }
  static bool loggedIn(const std::string& user, const std::string& password, const std::string& scheme = "game") {
    return awaited([&](Completion done) { Validation::loginWithUsername(user, password, scheme, done); });
  }

  endpoint::HttpsServer server_;
};

using endpoint::RecordedRequest;
using endpoint::Reply;
using Headers = std::map<std::string, std::string>;

class ValidationTest : public LoopbackServiceTest {
 protected:
  // Both routes answer `status` and `body` with "KEY" replaced by the operation's own key.
  void answer(int status, std::string body) {
    for (const auto& [method, path, key] :
         {std::tuple{"GET", kValidatePath, "valid"}, {"POST", kLoginPath, "authed"}}) {
      std::string keyed = body;
      if (const auto at = keyed.find("KEY"); at != std::string::npos) keyed.replace(at, 3, key);
      server_.addRoute(method, std::string(path), [=](const RecordedRequest&) { return Reply{status, keyed}; });
    }
  }
  std::tuple<std::string, std::string, Headers, std::string> lastRequest() {
    const RecordedRequest request = server_.requests().back();
    Headers chosen(request.headers.begin(), request.headers.end());
    chosen.erase("Host");
    chosen.erase("Content-Length");
    return {request.method, request.target, chosen, request.body};
  }
};

TEST_F(ValidationTest, SendsExactlyTheRequestsOfTheService) {
  answer(200, R"({"KEY":true})");
  bool logged = false;
  Platform::current().setLogSink([&logged](std::string_view) { logged = true; });

  EXPECT_TRUE(validated("tok en/+= :Bearer"));
  EXPECT_EQ(lastRequest(), std::tuple("GET", "/m/launch/project/validate",
                                      Headers{{"Authorization", "tok en/+= :Bearer"}}, ""));
  EXPECT_TRUE(validated(std::nullopt));
  EXPECT_EQ(lastRequest(), std::tuple("GET", "/m/launch/project/validate", Headers{}, ""));

  const Headers json{{"Accept", "application/json"}, {"Content-Type", "application/json"}};
  for (const auto& [user, password, scheme] :
       {std::tuple{"alice", "s3cret", "game"}, {"", "", ""}, {"\xC3\xBC \"q\"", "p\\w\n/{}", "x"}}) {
    EXPECT_TRUE(loggedIn(user, password, scheme));
    const auto [method, target, headers, body] = lastRequest();
    EXPECT_EQ(std::tie(method, target, headers), std::tie("POST", "/m/launch/project/auth/ios", json));
    const auto members = nlohmann::json::parse(body, nullptr, false);
    EXPECT_EQ(members, (nlohmann::json{{"username", user}, {"password", password}, {"urlScheme", scheme}}));
    EXPECT_EQ(body.size(), members.dump().size()) << "not compact: " << body;
  }
  EXPECT_FALSE(logged);
}

TEST_F(ValidationTest, OnlyTheKeyDecidesNeverTheStatusAndNoReplyMeansFalse) {
  const auto both = [] { return std::pair(validated("t"), loggedIn("alice", "s3cret")); };
  // How a value other than a bool reads is the platform's boolValue, tested with it.
  const std::vector<std::tuple<int, const char*, bool>> cases = {
      {401, R"({"KEY":true})", true},    {500, R"({"KEY":true,"x":1})", true}, {200, R"({"KEY":false})", false},
      {200, R"({})", false},             {200, R"({"KEY ":true})", false},     {200, R"({"KEY":0})", false},
      {200, R"({"KEY":1})", true},       {200, R"({"KEY":null})", false},      {200, R"([{"KEY":true}])", false},
      {200, "true", false},              {200, R"({"KEY":true} x)", false},    {200, R"({"KEY":tru)", false},
      {200, "", false},
  };
  for (const auto& [status, body, expected] : cases) {
    answer(status, body);
    EXPECT_EQ(both(), std::pair(expected, expected)) << status << body;
  }
  // What the service would say counts for nothing when it does not say it.
  server_.dropConnections(2);
  EXPECT_EQ(both(), std::pair(false, false));
  server_.stop();
  EXPECT_EQ(both(), std::pair(false, false));
}

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
