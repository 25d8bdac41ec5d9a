#include "backend/validation.hpp"

#include "loopback_service.hpp"

#include <nlohmann/json.hpp>

#include <future>
#include <map>

namespace tavrel::testing {
namespace {

using endpoint::RecordedRequest;
using endpoint::Reply;
using Headers = std::map<std::string, std::string>;
using namespace std::chrono_literals;

void validate(std::optional<std::string> token, Completion done) {
  Validation::validate(token, std::move(done));
}
void login(Completion done) { Validation::loginWithUsername("alice", "s3cret", "game", std::move(done)); }

class ValidationTest : public LoopbackServiceTest {
 protected:
  // Both routes answer `status` and `body` with "KEY" replaced by the operation's own key.
  void answer(int status, std::string body) {
    for (const auto& [method, path, key] :
         {std::tuple{"GET", kValidatePath, "valid"}, {"POST", kLoginPath, "authed"}}) {
      std::string keyed = body;
      if (const auto at = keyed.find("KEY"); at != std::string::npos) keyed.replace(at, 3, key);
      server_.addRoute(method, std::string(path),
                       [=](const RecordedRequest&) { return Reply{status, keyed}; });
    }
  }
  // What the library chose to send: method, target, its own headers and the body.
  std::tuple<std::string, std::string, Headers, std::string> lastRequest() {
    const RecordedRequest request = server_.requests().back();
    Headers chosen;
    for (const auto& [name, value] : request.headers) {
      if (name != "Host" && name != "Content-Length") chosen.emplace(name, value);
    }
    return {request.method, request.target, chosen, request.body};
  }
};

TEST_F(ValidationTest, SendsExactlyTheRequestsOfTheService) {
  answer(200, R"({"KEY":true})");
  bool logged = false;
  Platform::current().setLogSink([&logged](std::string_view) { logged = true; });

  EXPECT_TRUE(roundTrip([](Completion done) { validate("tok en/+= :Bearer", std::move(done)); }));
  EXPECT_EQ(lastRequest(), std::tuple("GET", "/m/launch/project/validate",
                                      Headers{{"Authorization", "tok en/+= :Bearer"}}, ""));
  EXPECT_TRUE(roundTrip([](Completion done) { validate(std::nullopt, std::move(done)); }));
  EXPECT_EQ(lastRequest(), std::tuple("GET", "/m/launch/project/validate", Headers{}, ""));

  const Headers json{{"Accept", "application/json"}, {"Content-Type", "application/json"}};
  for (const auto& c :
       {std::tuple{"alice", "s3cret", "game"}, {"", "", ""}, {"\xC3\xBC \"q\"", "p\\w\n/{}", "x"}}) {
    const auto& [user, password, scheme] = c;
    EXPECT_TRUE(roundTrip([&c](Completion done) {
      Validation::loginWithUsername(std::get<0>(c), std::get<1>(c), std::get<2>(c), std::move(done));
    }));
    const auto [method, target, headers, body] = lastRequest();
    EXPECT_EQ(std::tie(method, target, headers), std::tie("POST", "/m/launch/project/auth/ios", json));
    const auto members = nlohmann::json::parse(body, nullptr, false);
    EXPECT_EQ(members, (nlohmann::json{
                           {"username", user}, {"password", password}, {"urlScheme", scheme}}));
    EXPECT_EQ(body.size(), members.dump().size()) << "not compact: " << body;
  }
  EXPECT_FALSE(logged);
}

TEST_F(ValidationTest, OnlyTheKeyDecidesNeverTheStatus) {
  const std::vector<std::tuple<int, const char*, bool>> cases = {
      {401, R"({"KEY":true})", true},     {500, R"({"KEY":true,"x":1})", true},
      {200, R"({"KEY":false})", false},   {200, R"({})", false},
      {200, R"({"KEY ":true})", false},   {200, R"({"KEY":0})", false},
      {200, R"({"KEY":1})", true},        {200, R"({"KEY":-0.5})", true},
      {200, R"({"KEY":"yes"})", true},    {200, R"({"KEY":"no"})", false},
      {200, R"({"KEY":" +07"})", true},   {200, R"({"KEY":null})", false},
      {200, R"({"KEY":[true]})", false},  {200, R"({"KEY":{"a":1}})", false},
      {200, R"([{"KEY":true}])", false},  {200, "true", false},
      {200, R"({"KEY":true} x)", false},  {200, R"({"KEY":tru)", false},
      {200, "", false},
  };
  for (const auto& [status, body, expected] : cases) {
    answer(status, body);
    EXPECT_EQ(roundTrip([](Completion done) { validate("t", std::move(done)); }), expected)
        << status << body;
    EXPECT_EQ(roundTrip(login), expected) << status << body;
  }
}

TEST_F(ValidationTest, DroppedConnectionOrNoServerGivesFalse) {
  answer(200, R"({"KEY":true})");
  server_.dropConnections(2);
  EXPECT_FALSE(roundTrip([](Completion done) { validate("t", std::move(done)); }));
  EXPECT_FALSE(roundTrip(login));
  server_.stop();
  EXPECT_FALSE(roundTrip([](Completion done) { validate("t", std::move(done)); }));
  EXPECT_FALSE(roundTrip(login));
}

TEST_F(ValidationTest, ALoginCompletesWhileAValidationIsHeldAtTheServer) {
  auto arrived = std::make_shared<std::promise<void>>();
  auto loginDone = std::make_shared<std::promise<void>>();
  answer(200, R"({"KEY":true})");
  server_.addRoute("GET", std::string(kValidatePath),
                   [arrived, done = loginDone->get_future().share()](const RecordedRequest&) {
                     arrived->set_value();
                     const bool loginFirst = done.wait_for(20s) == std::future_status::ready;
                     return Reply{200, loginFirst ? R"({"valid":true})" : "{}"};
                   });
  Awaited validation, login;
  validate("t", validation.completion);
  ASSERT_EQ(arrived->get_future().wait_for(20s), std::future_status::ready);
  EXPECT_NE(validation.result.wait_for(0s), std::future_status::ready);  // returned before its reply
  Validation::loginWithUsername("alice", "pw", "game", [loginDone, done = login.completion](bool ok) {
    done(ok);
    loginDone->set_value();
  });
  EXPECT_TRUE(login.get());
  EXPECT_TRUE(validation.get());
}

TEST_F(ValidationTest, TwentyRequestsAtOnceEachGetTheirOwnAnswer) {
  // Odd-numbered tokens and users are refused, so a crossed reply shows.
  const auto byLastDigit = [](const std::string& text) {
    return Reply{200, (text.back() - '0') % 2 ? "{}" : R"({"valid":true,"authed":true})"};
  };
  server_.addRoute("GET", std::string(kValidatePath), [byLastDigit](const RecordedRequest& r) {
    return byLastDigit(*r.header("Authorization"));
  });
  server_.addRoute("POST", std::string(kLoginPath), [byLastDigit](const RecordedRequest& r) {
    return byLastDigit(nlohmann::json::parse(r.body)["username"]);
  });
  server_.delayReplies(50ms);

  std::vector<Awaited> calls(20);
  std::vector<std::thread> callers;
  for (std::size_t i = 0; i < 10; ++i) {
    callers.emplace_back([&, i] {
      validate("token-" + std::to_string(i), calls[i].completion);
      Validation::loginWithUsername("user-" + std::to_string(i), "pw", "g", calls[10 + i].completion);
    });
  }
  for (auto& caller : callers) caller.join();
  for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(calls[i].get(), i % 2 == 0) << i;
}

}  // namespace
}  // namespace tavrel::testing
