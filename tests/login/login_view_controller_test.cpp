#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "login/login_view_controller.hpp"
#include "platform/notification_center.hpp"
#include "support/game_screen.hpp"

#include <nlohmann/json.hpp>

#include <functional>
#include <thread>
#include <vector>

namespace tavrel {
namespace {

constexpr const char* kOneScheme = R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["mygame"]}]})";

// A login page over the game, against the real HTTPS service in virtual time.
class LoginPage : public testing::SimulatedGame {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    endpoint::MockService{.users = {{"ann", "secret"}}}.install(server_);
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
    sim().setServiceBaseUrlForTesting(server_.baseUrl());
    sim().setInfoDictionaryJson(kOneScheme);
  }

  // A page whose callback records its calls and whether the page was still leaving then.
  void present() {
    page_ = std::make_shared<LoginViewController>([this, main = std::this_thread::get_id()](bool result) {
      calls_.push_back(result && std::this_thread::get_id() == main);
      calledWhileLeaving_ = page_ && page_->isBeingDismissed();
    });
    game()->presentViewController(page_, true, nullptr);
    sim().advance(1.0);
  }
  LoginView& form() { return static_cast<LoginView&>(*page_->view()); }
  void logIn(const std::string& password) {
    form().txtUsername()->setText("ann");
    form().txtPassword()->setText(password);
    ASSERT_TRUE(host().tapElement("Login"));
  }
  // The reply, what it brings, and the page's slide or the alert's fade.
  void finish() {
    sim().runUntilIdle();
    sim().advance(1.0);
  }
  std::shared_ptr<UIAlertController> alert() {
    return std::dynamic_pointer_cast<UIAlertController>(page_->presentedViewController());
  }
  nlohmann::json lastLogin() { return nlohmann::json::parse(server_.requests().back().body); }

  endpoint::HttpsServer server_;
  std::shared_ptr<LoginViewController> page_;
  std::vector<bool> calls_;  // true: with true, on the main thread
  bool calledWhileLeaving_ = false;
};

TEST_F(LoginPage, ARefusalShowsTheAlertAndAnAcceptedLoginLeavesWithOneCall) {
  present();
  logIn("wrong");
  sim().runUntilIdle();
  ASSERT_TRUE(alert());
  EXPECT_TRUE(alert()->isBeingPresented()) << "it fades in";
  sim().advance(1.0);
  EXPECT_EQ(alert()->title(), "Tavrel by Orvane");
  EXPECT_EQ(alert()->message(), "Invalid username or password!");
  EXPECT_FALSE(form().btnLogin()->isEnabled()) << "the form waits for OK";

  ASSERT_TRUE(host().tapElement("OK"));
  finish();
  EXPECT_FALSE(alert());
  EXPECT_TRUE(form().btnLogin()->isEnabled());
  EXPECT_TRUE(calls_.empty());

  logIn("secret");
  finish();
  EXPECT_FALSE(alert());
  EXPECT_EQ(calls_, std::vector<bool>{true});
  EXPECT_TRUE(calledWhileLeaving_) << "called at once, not after the slide";
  EXPECT_EQ(game()->presentedViewController(), nullptr);
  EXPECT_EQ(lastLogin(), (nlohmann::json{{"username", "ann"}, {"password", "secret"}, {"urlScheme", "mygame"}}));
}

TEST_F(LoginPage, OnlyTheFirstSchemeOfTheFirstTypeIsSentAndANullCallbackIsFine) {
  sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["first","second"]},)"
                              R"({"CFBundleURLSchemes":["other"]}]})");
  page_ = std::make_shared<LoginViewController>(nullptr);
  game()->presentViewController(page_, false, nullptr);
  logIn("secret");
  finish();
  EXPECT_EQ(lastLogin()["urlScheme"], "first");
  EXPECT_EQ(game()->presentedViewController(), nullptr);
  NotificationCenter::defaultCenter().postNotificationName(kAuthenticateNotification, &form(), {{"username", 5}});
  finish();
  EXPECT_EQ(lastLogin()["username"], "") << "what is not a text goes as an empty one";
}

// Whatever went wrong, the player sees the one refusal and gets the form back.
TEST_F(LoginPage, EveryFailureLooksLikeAWrongPassword) {
  struct Case {
    const char* what;
    std::function<void()> arrange;
    std::size_t requests;
  };
  const Case cases[] = {
      {"connection dropped", [this] { server_.dropConnections(); }, 1},
      {"no URL scheme", [this] { sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{}]})"); }, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    c.arrange();
    present();
    logIn("secret");
    finish();
    ASSERT_TRUE(alert());
    EXPECT_EQ(alert()->message(), "Invalid username or password!");
    EXPECT_EQ(server_.requestCount(), c.requests);
    const auto logs = sim().logLines();
    ASSERT_EQ(logs.size(), c.requests == 0 ? 1u : 0u) << "one line per attempt without a scheme";
    if (!logs.empty()) {
      EXPECT_TRUE(logs[0].starts_with("SDK > ") && logs[0].find("CFBundleURLTypes") != std::string::npos) << logs[0];
    }
    ASSERT_TRUE(host().tapElement("OK"));
    finish();
    EXPECT_TRUE(form().btnLogin()->isEnabled());

    game()->dismissViewControllerAnimated(false, nullptr);
    server_.resetControls();
    server_.clearRequests();
    sim().clearLog();
    sim().setInfoDictionaryJson(kOneScheme);
  }
  EXPECT_TRUE(calls_.empty());
}

TEST_F(LoginPage, ALoginUnderWayWhenThePageIsTakenAwayStillCallsBack) {
  present();
  logIn("secret");
  game()->dismissViewControllerAnimated(false, nullptr);
  const std::weak_ptr<LoginViewController> page = page_;
  page_.reset();
  EXPECT_FALSE(page.expired()) << "the login's work holds the page";
  finish();
  EXPECT_EQ(calls_, std::vector<bool>{true});
  EXPECT_TRUE(page.expired()) << "and lets it go at the end";
}

}  // namespace
}  // namespace tavrel
