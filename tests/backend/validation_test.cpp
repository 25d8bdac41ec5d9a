#include "backend/validation.hpp"

#include "loopback_service.hpp"

#include <nlohmann/json.hpp>

#include <future>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrel::testing {
namespace {

using endpoint::RecordedRequest;
using endpoint::Reply;
using namespace std::chrono_literals;

// The headers the library chose to send: those HTTP itself adds are left out.
std::map<std::string, std::string> chosenHeaders(const RecordedRequest& request) {
  std::map<std::string, std::string> chosen;
  for (const auto& [name, value] : request.headers) {
    if (name != "Host" && name != "Content-Length") chosen.emplace(name, value);
  }
  return chosen;
}

void validate(std::optional<std::string> token, Completion callback) {
  Validation::validate(token, std::move(callback));
}

void login(Completion callback) {
  Validation::loginWithUsername("alice", "s3cret", "mygame", std::move(callback));
}

class ValidationTest : public LoopbackServiceTest {
 protected:
  // Both routes answer whatever `reply` says at the time, under the operation's own key.
  void answer(int status, std::string bodyTemplate) {
    std::lock_guard lock(replyMutex_);
    reply_ = {status, std::move(bodyTemplate)};
  }

  void SetUp() override {
    LoopbackServiceTest::SetUp();
    auto route = [this](const char* key) {
      return [this, key](const RecordedRequest&) {
        std::lock_guard lock(replyMutex_);
        std::string body = reply_.second;
        if (const auto at = body.find("KEY"); at != std::string::npos) body.replace(at, 3, key);
        return Reply{reply_.first, body};
      };
    };
    server_.addRoute("GET", std::string(kValidatePath), route("valid"));
    server_.addRoute("POST", std::string(kLoginPath), route("authed"));
    answer(200, R"({"KEY":true})");
  }

  std::mutex replyMutex_;
  std::pair<int, std::string> reply_;
};

TEST_F(ValidationTest, ValidationSendsTheBareTokenAndNoOtherHeader) {
  const std::string token = "tok en/+= :Bearer";
  EXPECT_TRUE(roundTrip([&](Completion done) { validate(token, std::move(done)); }));

  ASSERT_EQ(server_.requestCount(), 1u);
  const RecordedRequest request = server_.requests()[0];
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/m/launch/project/validate");
  EXPECT_EQ(chosenHeaders(request), (std::map<std::string, std::string>{{"Authorization", token}}));
  EXPECT_EQ(request.bodySize, 0u);
}

TEST_F(ValidationTest, NullTokenStillSendsTheRequestWithoutAuthorization) {
  EXPECT_TRUE(roundTrip([](Completion done) { validate(std::nullopt, std::move(done)); }));
  ASSERT_EQ(server_.requestCount(), 1u);
  EXPECT_EQ(server_.requests()[0].method, "GET");
  EXPECT_TRUE(chosenHeaders(server_.requests()[0]).empty());
}

TEST_F(ValidationTest, LoginSendsCompactJsonWithExactlyThreeStrings) {
  struct Case {
    std::string username, password, urlScheme;
  };
  const std::vector<Case> cases = {
      {"alice", "s3cret", "mygame"},
      {"", "", ""},
      {"\xC3\xBCn\xC3\xAF \"q\"", "p\\w\n\t/{}", "x"},
  };
  for (const auto& c : cases) {
    server_.clearRequests();
    EXPECT_TRUE(roundTrip([&](Completion done) {
      Validation::loginWithUsername(c.username, c.password, c.urlScheme, std::move(done));
    }));
    ASSERT_EQ(server_.requestCount(), 1u);
    const RecordedRequest request = server_.requests()[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/m/launch/project/auth/ios");
    EXPECT_EQ(chosenHeaders(request), (std::map<std::string, std::string>{
                                          {"Accept", "application/json"},
                                          {"Content-Type", "application/json"}}));
    const auto body = nlohmann::json::parse(request.body, nullptr, false);
    EXPECT_EQ(body, (nlohmann::json{{"username", c.username}, {"password", c.password},
                                    {"urlScheme", c.urlScheme}}))
        << request.body;
    // Compact whatever the member order: no byte beyond what the shortest form needs.
    EXPECT_EQ(request.body.size(), body.dump().size()) << request.body;
  }
  // Neither the password nor anything else goes to the log.
  EXPECT_TRUE(logLines().empty());
}

TEST_F(ValidationTest, OnlyTheKeyDecidesNotTheStatus) {
  struct Case {
    int status;
    const char* body;
    bool expected;
  };
  const std::vector<Case> cases = {
      {401, R"({"KEY":true})", true},
      {500, R"({"KEY":true,"other":1})", true},
      {200, R"({"KEY":false})", false},
      {200, R"({})", false},
      {200, R"({"valid ":true,"authed ":true})", false},
      {200, R"({"KEY":0})", false},
      {200, R"({"KEY":1})", true},
      {200, R"({"KEY":-0.5})", true},
      {200, R"({"KEY":"yes"})", true},
      {200, R"({"KEY":"no"})", false},
      {200, R"({"KEY":" +007"})", true},
      {200, R"({"KEY":null})", false},
      {200, R"({"KEY":[true]})", false},
      {200, R"({"KEY":{"KEY":true}})", false},
      {200, R"([{"KEY":true}])", false},
      {200, R"(true)", false},
      {200, R"("KEY")", false},
      {200, R"({"KEY":true} trailing)", false},
      {200, R"({"KEY":tru)", false},
      {200, "", false},
      {204, "", false},
  };
  for (const auto& c : cases) {
    answer(c.status, c.body);
    EXPECT_EQ(roundTrip([](Completion done) { validate("t", std::move(done)); }), c.expected)
        << "validate: " << c.status << " " << c.body;
    EXPECT_EQ(roundTrip([](Completion done) { login(std::move(done)); }), c.expected)
        << "login: " << c.status << " " << c.body;
  }
}

TEST_F(ValidationTest, TransportFailuresGiveFalse) {
  server_.dropConnections(2);
  EXPECT_FALSE(roundTrip([](Completion done) { validate("t", std::move(done)); }));
  EXPECT_FALSE(roundTrip([](Completion done) { login(std::move(done)); }));

  // Nothing listens on the port any more.
  server_.stop();
  EXPECT_FALSE(roundTrip([](Completion done) { validate("t", std::move(done)); }));
  EXPECT_FALSE(roundTrip([](Completion done) { login(std::move(done)); }));
}

TEST_F(ValidationTest, UntrustedCertificateGivesFalse) {
  endpoint::HttpsServer other;
  point(server_.baseUrl(), other.caFile());
  EXPECT_FALSE(roundTrip([](Completion done) { validate("t", std::move(done)); }));
  EXPECT_EQ(server_.requestCount(), 0u);
}

TEST_F(ValidationTest, LoginCompletesWhileAValidationIsHeld) {
  // The validation's reply waits until the login's completion has run: the two share nothing.
  auto arrived = std::make_shared<std::promise<void>>();
  auto loginDone = std::make_shared<std::promise<void>>();
  server_.addRoute("GET", std::string(kValidatePath),
                   [arrived, released = loginDone->get_future().share()](const RecordedRequest&) {
                     arrived->set_value();
                     const bool loginFirst = released.wait_for(20s) == std::future_status::ready;
                     return Reply{200, loginFirst ? R"({"valid":true})" : R"({"valid":false})"};
                   });

  auto outcomes = Outcomes::make(2);
  validate("t", outcomes->completion(0));
  ASSERT_EQ(arrived->get_future().wait_for(20s), std::future_status::ready);
  EXPECT_TRUE(outcomes->calls()[0].empty());
  login([loginDone, forward = outcomes->completion(1)](bool result) {
    forward(result);
    loginDone->set_value();
  });
  ASSERT_TRUE(outcomes->waitAll());
  EXPECT_EQ(outcomes->calls(), (std::vector<std::vector<bool>>{{true}, {true}}));
}

TEST_F(ValidationTest, ManyRequestsAtOnceEachCompleteOnceWithTheirOwnAnswer) {
  constexpr std::size_t kEach = 10;
  // Odd-numbered tokens and users are refused, so a crossed reply shows.
  server_.addRoute("GET", std::string(kValidatePath), [](const RecordedRequest& request) {
    const std::string token = request.header("Authorization").value_or("");
    return Reply{200, nlohmann::json{{"valid", (token.back() - '0') % 2 == 0}}.dump()};
  });
  server_.addRoute("POST", std::string(kLoginPath), [](const RecordedRequest& request) {
    const auto body = nlohmann::json::parse(request.body);
    const std::string user = body["username"];
    return Reply{200, nlohmann::json{{"authed", (user.back() - '0') % 2 == 0}}.dump()};
  });
  server_.delayReplies(50ms);

  auto outcomes = Outcomes::make(2 * kEach);
  std::vector<std::thread> callers;
  for (std::size_t i = 0; i < kEach; ++i) {
    callers.emplace_back([&, i] {
      validate("token-" + std::to_string(i), outcomes->completion(i));
      Validation::loginWithUsername("user-" + std::to_string(i), "pw", "g",
                                    outcomes->completion(kEach + i));
    });
  }
  for (auto& caller : callers) caller.join();
  ASSERT_TRUE(outcomes->waitAll());

  // A last round trip on the same queue: a second call of any completion would be queued by now.
  server_.resetControls();
  roundTrip([](Completion done) { validate("token-0", std::move(done)); });
  const auto calls = outcomes->calls();
  for (std::size_t i = 0; i < 2 * kEach; ++i) {
    EXPECT_EQ(calls[i], std::vector<bool>{(i % kEach) % 2 == 0}) << "request " << i;
  }
  EXPECT_EQ(server_.requestCount(), 2 * kEach + 1);
  EXPECT_FALSE(outcomes->threads().count(std::this_thread::get_id()));
}

}  // namespace
}  // namespace tavrel::testing
