#pragma once

#include <tavrel_sdk/platform.hpp>

#include "backend/validation.hpp"
#include "endpoint/https_server.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>

namespace tavrel::testing {

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

inline void point(const std::string& baseUrl, const std::string& caFile) {
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

}  // namespace tavrel::testing
