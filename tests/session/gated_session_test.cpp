#include <tavrel_sdk/ui.hpp>

#include "endpoint/https_server.hpp"
#include "login/login_view_controller.hpp"
#include "support/game_screen.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace tavrel {
namespace {

const std::string kValidToken = "TOKENPREFIX-0123456789ab" "USERID-0123456789abcdefg";
const std::string kRefusedToken = "TOKENPREFIX-0123456789ab" "REFUSED-0123456789abcdef";

class GatedSession : public testing::SimulatedGame {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    server_.addRoute("GET", "/m/launch/project/validate", [](const endpoint::RecordedRequest& request) {
      const bool valid = request.header("Authorization") == kValidToken;
      return endpoint::Reply{.status = 200, .body = valid ? R"({"valid":true})" : R"({"valid":false})"};
    });
    server_.addRoute("POST", "/m/launch/project/auth/ios", [](const endpoint::RecordedRequest& request) {
      const bool authed = request.body.find(R"("password":"secret")") != std::string::npos;
      return endpoint::Reply{.status = 200, .body = authed ? R"({"authed":true})" : R"({"authed":false})"};
    });
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
    sim().setServiceBaseUrlForTesting(server_.baseUrl());
    sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["mygame"]}]})");
    sdk().setViewController(game());
  }

  // The player logs in through the page on the screen; the page's dismissal is under way after.
  void logIn(const std::string& password = "secret") {
    finishTransitions();  // the page slides in before the player can reach it
    ASSERT_TRUE(host().tapElement("Tavrel username"));
    host().typeText("ann");
    ASSERT_TRUE(host().tapElement("Password"));
    host().typeText(password);
    ASSERT_TRUE(host().tapElement("Login"));
    sim().runUntilIdle();
  }
  void finishTransitions() { sim().advance(1.0); }
  bool pageUp() { return sdk().isLoginPageVisible(); }

  endpoint::HttpsServer server_;
};

TEST_F(GatedSession, ARefusedTokenBringsThePageAndALoginStartsTheReloginTimer) {
  sdk().setAuthToken(kRefusedToken);
  std::atomic<int> calls{0};
  std::atomic<bool> onMain{false};
  const auto mainThread = std::this_thread::get_id();
  sdk().validate([&](bool ok) {
    calls += ok ? 1 : 100;
    onMain = std::this_thread::get_id() == mainThread;
  });
  sim().runUntilIdle();  // the presentation starts on the first turn of the main queue after the reply
  EXPECT_TRUE(pageUp());
  EXPECT_EQ(calls, 0);  // a refusal is never reported

  logIn();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(onMain);
  EXPECT_TRUE(pageUp()) << "dismissed with animation: still presented while it slides away";
  finishTransitions();
  EXPECT_FALSE(pageUp());
  ASSERT_NE(sdk().timer(), nullptr);

  sim().advance(598.0);  // 599 s after the login
  EXPECT_FALSE(pageUp());
  sim().advance(1.5);
  EXPECT_TRUE(pageUp()) << "the repeat page";
  sim().advance(600.0);  // the timer fires while the page is up: nothing, and it goes on
  EXPECT_TRUE(pageUp());
  logIn();
  finishTransitions();
  EXPECT_FALSE(pageUp());
  EXPECT_EQ(calls, 1) << "the repeat page's login calls nothing in the game";
  sim().advance(600.0);
  EXPECT_TRUE(pageUp()) << "every 600 s, however often the player logs in";
}

TEST_F(GatedSession, ASecondLoginAddsASecondTimerAndBothFire) {
  const auto advanceTo = [&](double t) { sim().advance(t - sim().elapsed()); };
  sdk().showLoginPage(nullptr);
  sim().runUntilIdle();
  logIn();
  const double timerA = sim().elapsed();
  finishTransitions();
  advanceTo(timerA + 300.0);
  sdk().showLoginPage(nullptr);
  sim().runUntilIdle();
  logIn();
  const double timerB = sim().elapsed();
  finishTransitions();
  advanceTo(timerA + 600.5);
  ASSERT_TRUE(pageUp()) << "timer A";
  logIn();
  finishTransitions();
  advanceTo(timerB + 599.5);
  EXPECT_FALSE(pageUp());
  advanceTo(timerB + 600.5);
  EXPECT_TRUE(pageUp()) << "timer B";
}

TEST_F(GatedSession, AWrongPasswordKeepsThePageUpWithItsAlert) {
  sdk().setAuthToken(kRefusedToken);
  std::atomic<int> calls{0};
  sdk().validate([&](bool) { ++calls; });
  sim().runUntilIdle();
  logIn("wrong");
  finishTransitions();
  auto page = sdk().parentViewController()->presentedViewController();
  ASSERT_TRUE(page);
  auto alert = std::dynamic_pointer_cast<UIAlertController>(page->presentedViewController());
  ASSERT_TRUE(alert);
  EXPECT_EQ(alert->message(), "Invalid username or password!");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(sdk().timer(), nullptr);
}

TEST_F(GatedSession, NullCompletions) {
  sdk().setAuthToken(kValidToken);
  sdk().validate(nullptr);
  sim().runUntilIdle();
  EXPECT_FALSE(pageUp());

  sdk().setAuthToken(kRefusedToken);
  sdk().validate(nullptr);
  sim().runUntilIdle();
  ASSERT_TRUE(pageUp());
  logIn();
  finishTransitions();
  EXPECT_FALSE(pageUp());
  EXPECT_NE(sdk().timer(), nullptr) << "a login through the page starts the timer with no game completion";
}

TEST_F(GatedSession, AValidLaunchUrlTakesThePageAwayWithoutAnimationAndStartsNoTimer) {
  sdk().setAuthToken(kRefusedToken);
  std::atomic<int> calls{0};
  sdk().validate([&](bool ok) { calls += ok; });
  sim().runUntilIdle();
  ASSERT_TRUE(pageUp());

  sdk().processUrlRequest("mygame://validate?launchToken=" + kValidToken);
  sim().runUntilIdle();  // no time passes: no animation
  EXPECT_FALSE(pageUp());
  EXPECT_EQ(sdk().parentViewController()->presentedViewController(), nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(sdk().timer(), nullptr);

  sdk().processUrlRequest("mygame://validate?launchToken=" + kValidToken);
  sim().runUntilIdle();
  EXPECT_EQ(calls, 2) << "the game's completion again for each valid launch URL";
}

TEST_F(GatedSession, WithoutAParentNoPageComesAndNothingIsCalled) {
  sdk().setParentViewController(nullptr);
  sdk().setAuthToken(kRefusedToken);
  std::atomic<int> calls{0};
  sdk().validate([&](bool) { ++calls; });
  sim().runUntilIdle();
  sim().advance(1.0);
  EXPECT_FALSE(pageUp());
  EXPECT_EQ(game()->presentedViewController(), nullptr);
  EXPECT_EQ(calls, 0);
}

TEST_F(GatedSession, APageFromTheTimerGoesWithDismissLoginPage) {
  sdk().showLoginPage(nullptr);
  sim().runUntilIdle();
  logIn();
  finishTransitions();
  sim().advance(600.0);
  ASSERT_TRUE(pageUp());
  sdk().dismissLoginPage();
  sim().runUntilIdle();
  EXPECT_FALSE(pageUp());
}

TEST_F(GatedSession, TerminateWithPopupEndsTheProcessOnlyThroughItsButton) {
  sdk().terminateWithPopup();
  sim().runUntilIdle();
  finishTransitions();
  auto alert = std::dynamic_pointer_cast<UIAlertController>(game()->presentedViewController());
  ASSERT_TRUE(alert);
  EXPECT_EQ(alert->title(), "Tavrel by Orvane");
  EXPECT_EQ(alert->message(), "Please start your gameplay session through the Tavrel iOS app!");
  ASSERT_EQ(alert->actions().size(), 1u);
  sim().advance(60.0);
  EXPECT_FALSE(sim().exitStatus());
  ASSERT_TRUE(host().tapElement("OK"));
  finishTransitions();
  EXPECT_EQ(sim().exitStatus(), 255);
}

TEST_F(GatedSession, TheExitAlertIsRefusedWhileALoginPageIsUp) {
  sdk().showLoginPage(nullptr);
  sim().runUntilIdle();
  sdk().terminateWithPopup();
  sim().runUntilIdle();
  EXPECT_TRUE(pageUp());
  bool warned = false;
  for (const auto& line : sim().logLines()) warned |= line.find("which is already presenting") != std::string::npos;
  EXPECT_TRUE(warned);
}

TEST_F(GatedSession, BehindA302TheValidationIsAnsweredAndTheLoginGoesOnAsAGet) {
  server_.redirectRequests(302);
  sdk().setAuthToken(kValidToken);
  std::atomic<int> calls{0};
  sdk().validate([&](bool ok) { calls += ok ? 1 : 100; });
  sim().runUntilIdle();
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(pageUp());

  // A POST answered 302 goes on as a GET, as on the platform: the service hears no login.
  sdk().showLoginPage([&](bool ok) { calls += ok ? 1 : 100; });
  sim().runUntilIdle();
  logIn();
  finishTransitions();
  auto page = sdk().parentViewController()->presentedViewController();
  ASSERT_TRUE(page);
  EXPECT_TRUE(std::dynamic_pointer_cast<UIAlertController>(page->presentedViewController()));
  const auto seen = server_.requests();
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[1].target, "/moved/m/launch/project/validate");
  EXPECT_EQ(seen[1].header("Authorization"), kValidToken) << "the same host";
  EXPECT_EQ(std::tie(seen[3].method, seen[3].target), std::tuple("GET", "/moved/m/launch/project/auth/ios"));
  EXPECT_EQ(calls, 1);
}

// A service that takes the request and never answers: the platform's time-out, in virtual time.
class SilentService : public GatedSession {
 protected:
  SilentService() { simOptions.silentNetworkAfter = std::chrono::milliseconds(50); }
};

TEST_F(SilentService, TheValidationAndTheLoginReadFalseAfterTheTimeOut) {
  server_.delayReplies(std::chrono::hours(1));
  sdk().setAuthToken(kValidToken);
  std::atomic<int> calls{0};
  sdk().validate([&](bool) { ++calls; });
  sim().advance(59.5);
  EXPECT_FALSE(pageUp());
  sim().advance(1.0);
  EXPECT_TRUE(pageUp()) << "no answer in 60 s is no";

  logIn();
  sim().advance(58.0);
  auto page = sdk().parentViewController()->presentedViewController();
  ASSERT_TRUE(page);
  EXPECT_FALSE(page->presentedViewController());
  sim().advance(2.5);
  auto alert = std::dynamic_pointer_cast<UIAlertController>(page->presentedViewController());
  ASSERT_TRUE(alert);
  EXPECT_EQ(alert->message(), "Invalid username or password!");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(server_.requestCount(), 0u) << "both still held at the server";
}

TEST_F(GatedSession, TerminateFromAnotherThread) {
  std::thread([&] { sdk().terminate(); }).join();
  EXPECT_EQ(sim().exitStatus(), 255);
}

}  // namespace
}  // namespace tavrel
