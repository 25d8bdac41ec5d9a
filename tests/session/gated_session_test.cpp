#include <tavrel_sdk/ui.hpp>

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
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
    endpoint::MockService{.validTokens = {kValidToken}, .refusedTokens = {kRefusedToken}, .users = {{"ann", "secret"}}}
        .install(server_);
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
    sim().setServiceBaseUrlForTesting(server_.baseUrl());
    sim().setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["mygame"]}]})");
    sdk().setViewController(game());
  }

  // The player logs in through the page on the screen; the page's dismissal is under way after.
  void logIn() {
    finishTransitions();  // the page slides in before the player can reach it
    ASSERT_TRUE(host().tapElement("Tavrel username"));
    host().typeText("ann");
    ASSERT_TRUE(host().tapElement("Password"));
    host().typeText("secret");
    ASSERT_TRUE(host().tapElement("Login"));
    sim().runUntilIdle();
  }
  void finishTransitions() { sim().advance(1.0); }
  bool pageUp() { return sdk().isLoginPageVisible(); }
  bool pageSlidingIn() { return pageUp() && game()->presentedViewController()->isBeingPresented(); }

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
  EXPECT_TRUE(pageSlidingIn());
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
  sim().advance(1.1);
  EXPECT_TRUE(pageSlidingIn()) << "the repeat page";
  sim().advance(600.0);  // the timer fires while the page is up: nothing, and it goes on
  EXPECT_TRUE(pageUp());
  logIn();
  finishTransitions();
  EXPECT_FALSE(pageUp());
  EXPECT_EQ(calls, 1) << "the repeat page's login calls nothing in the game";
  sim().advance(600.0);
  EXPECT_TRUE(pageUp()) << "every 600 s, however often the player logs in";
  sdk().dismissLoginPage();  // the timer's page goes like any other
  sim().runUntilIdle();
  EXPECT_FALSE(pageUp());
}

TEST_F(GatedSession, ASecondLoginAddsASecondTimerAndBothFire) {
  const auto advanceTo = [&](double t) { sim().advance(t - sim().elapsed()); };
  // A page of the game's own, and a login through it; when its timer started.
  const auto logInThroughAPage = [&] {
    sdk().showLoginPage(nullptr);
    sim().runUntilIdle();
    logIn();
    const double started = sim().elapsed();
    finishTransitions();
    return started;
  };
  const double timerA = logInThroughAPage();
  advanceTo(timerA + 300.0);
  const double timerB = logInThroughAPage();
  advanceTo(timerA + 600.5);
  ASSERT_TRUE(pageUp()) << "timer A";
  logIn();
  finishTransitions();
  advanceTo(timerB + 599.5);
  EXPECT_FALSE(pageUp());
  advanceTo(timerB + 600.5);
  EXPECT_TRUE(pageUp()) << "timer B";
}

TEST_F(GatedSession, ALaunchUrlBeforeValidateOnlyStoresTheTokenAndNullCompletionsAreNoCalls) {
  sdk().processUrlRequest("mygame://validate?launchToken=" + kValidToken);
  sim().runUntilIdle();
  EXPECT_EQ(server_.requestCount(), 0u);
  std::atomic<int> calls{0};
  sdk().validate([&](bool ok) { calls += ok; });
  sim().runUntilIdle();
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(pageUp());

  sdk().setAuthToken(kRefusedToken);
  sdk().validate(nullptr);
  sim().runUntilIdle();
  ASSERT_TRUE(pageUp());
  logIn();
  finishTransitions();
  EXPECT_FALSE(pageUp());
  EXPECT_NE(sdk().timer(), nullptr) << "a login through the page starts the timer with no game completion";
  // A launch URL validates again with the stored null completion.
  sdk().processUrlRequest("mygame://validate?launchToken=" + kValidToken);
  sim().runUntilIdle();
  EXPECT_EQ(server_.requestCount(), 4u);
  EXPECT_TRUE(_validationCallbackSet.load());
}

TEST_F(GatedSession, AValidLaunchUrlTakesThePageAwayWithoutAnimationAndStartsNoTimer) {
  std::atomic<int> calls{0};
  sdk().validate([&](bool ok) { calls += ok; });
  sim().runUntilIdle();
  ASSERT_TRUE(pageUp());
  EXPECT_FALSE(server_.requests()[0].header("Authorization")) << "no token yet: asked without one";

  sdk().processUrlRequest("mygame://validate?launchToken=" + kValidToken);
  sim().runUntilIdle();  // no time passes: no animation
  EXPECT_EQ(std::tuple(pageUp(), sdk().parentViewController()->presentedViewController(), calls.load(), sdk().timer()),
            std::tuple(false, nullptr, 1, nullptr));

  sdk().processUrlRequest("mygame://validate?launchToken=" + kValidToken);
  sim().runUntilIdle();
  EXPECT_EQ(calls, 2) << "the game's completion again for each valid launch URL";
  sdk().terminateWithPopup();
  sim().runUntilIdle();
  EXPECT_TRUE(game()->presentedViewController()->isBeingPresented()) << "the way out fades in like any alert";
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

}  // namespace
}  // namespace tavrel
