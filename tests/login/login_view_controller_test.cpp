#include <tavrel_sdk/ui.hpp>

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "login/login_view_controller.hpp"
#include "support/game_screen.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <string>
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

  // Presents a page whose callback records its calls, whether the page was still on its way out
  // then, and the thread.
  void present(bool withCallback = true) {
    const auto mainThread = std::this_thread::get_id();
    Completion callback;
    if (withCallback) {
      callback = [this, mainThread](bool result) {
        calls_.push_back(result);
        calledWhileLeaving_ = page_ && game()->presentedViewController() == page_ && page_->isBeingDismissed();
        calledOnMain_ = std::this_thread::get_id() == mainThread;
      };
    }
    page_ = std::make_shared<LoginViewController>(std::move(callback));
    game()->presentViewController(page_, true, nullptr);
    sim().advance(1.0);
  }
  LoginView& form() { return static_cast<LoginView&>(*page_->view()); }
  // The player's login through the screen; the reply and what it brings are through after.
  void logIn(const std::string& password, bool waitForReply = true) {
    form().txtUsername()->setText("ann");
    form().txtPassword()->setText(password);
    ASSERT_TRUE(host().tapElement("Login"));
    if (waitForReply) finish();
  }
  void finish() {
    sim().runUntilIdle();
    sim().advance(1.0);  // the page's slide or the alert's fade
  }
  std::shared_ptr<UIAlertController> alert() {
    return std::dynamic_pointer_cast<UIAlertController>(page_->presentedViewController());
  }
  std::vector<nlohmann::json> sentLogins() {
    std::vector<nlohmann::json> bodies;
    for (const auto& request : server_.requests()) bodies.push_back(nlohmann::json::parse(request.body));
    return bodies;
  }

  endpoint::HttpsServer server_;
  std::shared_ptr<LoginViewController> page_;
  std::vector<bool> calls_;
  bool calledWhileLeaving_ = false;
  bool calledOnMain_ = false;
};

TEST_F(LoginPage, IsAFullScreenPageOfTheScreensSize) {
  present();
  EXPECT_EQ(page_->modalPresentationStyle(), UIModalPresentationStyle::FullScreen);
  EXPECT_EQ(form().frame(), CGRectMake(0, 0, 390, 844));
  EXPECT_TRUE(host().isCovered());
}

TEST_F(LoginPage, ARefusalShowsTheAlertAndAnAcceptedLoginLeavesWithOneCall) {
  present();
  logIn("wrong");
  ASSERT_TRUE(alert());
  EXPECT_EQ(alert()->title(), "Tavrel by Orvane");
  EXPECT_EQ(alert()->message(), "Invalid username or password!");
  EXPECT_EQ(alert()->preferredStyle(), UIAlertControllerStyle::Alert);
  ASSERT_EQ(alert()->actions().size(), 1u);
  EXPECT_EQ(alert()->actions()[0]->title(), "OK");
  EXPECT_EQ(alert()->actions()[0]->style(), UIAlertActionStyle::Default);
  EXPECT_FALSE(form().btnLogin()->isEnabled()) << "the form waits for OK";
  EXPECT_TRUE(calls_.empty());

  ASSERT_TRUE(host().tapElement("OK"));
  finish();
  EXPECT_FALSE(alert());
  EXPECT_TRUE(form().btnLogin()->isEnabled());
  EXPECT_EQ(form().txtPassword()->text(), "wrong");

  logIn("secret");
  EXPECT_FALSE(alert()) << "one alert in all";
  EXPECT_EQ(calls_, std::vector<bool>{true});
  EXPECT_TRUE(calledWhileLeaving_) << "called at once, not after the slide";
  EXPECT_TRUE(calledOnMain_);
  EXPECT_EQ(game()->presentedViewController(), nullptr);
  EXPECT_FALSE(form().btnLogin()->isEnabled()) << "the page leaves as it stood";
  ASSERT_EQ(sentLogins().size(), 2u);
  EXPECT_EQ(sentLogins()[1], (nlohmann::json{{"username", "ann"}, {"password", "secret"}, {"urlScheme", "mygame"}}));
}

TEST_F(LoginPage, WithANullCallbackAnAcceptedLoginOnlyLeaves) {
  present(/*withCallback=*/false);
  logIn("secret");
  EXPECT_EQ(game()->presentedViewController(), nullptr);
}

TEST_F(LoginPage, OnlyTheFirstSchemeOfTheFirstTypeIsSent) {
  sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["first","second"]},)"
                              R"({"CFBundleURLSchemes":["other"]}]})");
  present();
  logIn("secret");
  ASSERT_EQ(sentLogins().size(), 1u);
  EXPECT_EQ(sentLogins()[0]["urlScheme"], "first");
}

// Whatever went wrong, the player sees the one refusal and gets the form back.
TEST_F(LoginPage, EveryFailureLooksLikeAWrongPassword) {
  struct Case {
    const char* what;
    std::function<void()> arrange;
    std::size_t requests;
  };
  const Case cases[] = {
      {"wrong password", [] {}, 1},
      {"connection dropped", [this] { server_.dropConnections(); }, 1},
      {"no URL type", [this] { sim().setInfoDictionaryJson("{}"); }, 0},
      {"a type without schemes", [this] { sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{}]})"); }, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    c.arrange();
    present();
    logIn("wrong");
    ASSERT_TRUE(alert());
    EXPECT_EQ(alert()->message(), "Invalid username or password!");
    EXPECT_EQ(server_.requestCount(), c.requests);
    const auto logs = sim().logLines();
    if (c.requests == 0) {
      ASSERT_EQ(logs.size(), 1u) << "one line per attempt";
      EXPECT_NE(logs[0].find("CFBundleURLTypes"), std::string::npos) << logs[0];
    } else {
      EXPECT_TRUE(logs.empty());
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
  logIn("secret", /*waitForReply=*/false);
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
