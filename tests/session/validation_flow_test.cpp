#include "endpoint/https_server.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <atomic>

namespace tavrel {
namespace {

const std::string kToken = "TOKENPREFIX-0123456789ab" "USERID-0123456789abcdefg";

class ValidationFlow : public testing::SimulatedSession {
 protected:
  void SetUp() override {
    SimulatedSession::SetUp();
    server_.addRoute("GET", "/m/launch/project/validate", [](const endpoint::RecordedRequest& request) {
      const bool valid = request.header("Authorization") == kToken;
      return endpoint::Reply{.status = valid ? 200 : 401, .body = valid ? R"({"valid":true})" : R"({"valid":false})"};
    });
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
    sim().setServiceBaseUrlForTesting(server_.baseUrl());
  }
  endpoint::HttpsServer server_;
};

TEST_F(ValidationFlow, LaunchUrlsAfterTheGamesValidateRunItAgainWithTheStoredCompletion) {
  std::atomic<int> yes{0};
  sdk().validate([&](bool ok) { yes += ok ? 1 : 100; });
  sim().runUntilIdle();
  ASSERT_EQ(server_.requestCount(), 1u);
  EXPECT_FALSE(server_.requests()[0].header("Authorization"));  // no token yet: sent without one
  EXPECT_EQ(yes, 0);                                             // a refusal is never reported

  const std::string url = "g://validate?launchToken=" + kToken;
  sdk().processUrlRequest(url);
  sim().runUntilIdle();
  EXPECT_EQ(yes, 1);
  sdk().processUrlRequest(url);
  sim().runUntilIdle();
  EXPECT_EQ(yes, 2);  // the game's completion can run once per launch URL
  EXPECT_EQ(server_.requestCount(), 3u);
}

TEST_F(ValidationFlow, ALaunchUrlBeforeTheGamesValidateOnlyStoresTheToken) {
  sdk().processUrlRequest("g://validate?launchToken=" + kToken);
  sim().runUntilIdle();
  EXPECT_EQ(server_.requestCount(), 0u);
  std::atomic<int> yes{0};
  sdk().validate([&](bool ok) { yes += ok; });
  sim().runUntilIdle();
  EXPECT_EQ(yes, 1);
}

TEST_F(ValidationFlow, ANullCompletionIsStoredAndReusedWithoutCrashing) {
  sdk().validate(nullptr);
  EXPECT_TRUE(_validationCallbackSet.load());
  sdk().processUrlRequest("g://validate?launchToken=" + kToken);
  sim().runUntilIdle();
  EXPECT_EQ(server_.requestCount(), 2u);
  EXPECT_TRUE(_validationCallbackSet.load());
}

}  // namespace
}  // namespace tavrel
