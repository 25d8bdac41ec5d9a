#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "login/login_view_controller.hpp"
#include "platform/notification_center.hpp"
#include "support/game_screen.hpp"

#include <gmock/gmock.h>
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

TEST_F(LoginPage, EveryFailureLooksLikeAWrongPasswordAndAnAcceptedLoginLeavesWithOneCall) {
  present();
  const std::pair<const char*, std::function<void()>> failures[] = {
      {"wrong", [] {}},
      {"secret", [this] { server_.dropConnections(); }},
      {"secret", [this] { sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{}]})"); }},
  };
  for (const auto& [password, arrange] : failures) {
    arrange();
    logIn(password);
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
  }
  EXPECT_TRUE(calls_.empty());
  EXPECT_EQ(server_.requestCount(), 2u) << "none without a scheme";
  EXPECT_THAT(sim().logLines(), ::testing::ElementsAre(::testing::MatchesRegex("SDK > .*CFBundleURLTypes.*")));

  server_.resetControls();
  sim().setInfoDictionaryJson(kOneScheme);
  logIn("secret");
  finish();
  // Called at once, not after the slide.
  EXPECT_EQ(std::tuple(alert(), calls_, calledWhileLeaving_, game()->presentedViewController()),
            std::tuple(nullptr, std::vector<bool>{true}, true, nullptr));
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
