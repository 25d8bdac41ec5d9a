#include "loopback_service.hpp"

#include <nlohmann/json.hpp>

#include <map>

namespace tavrel::testing {
namespace {

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

}  // namespace
}  // namespace tavrel::testing
