#pragma once

// The Linux platform talking HTTPS to a server on 127.0.0.1 that it alone trusts.

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

// A completion and the future of its call. A second call throws on the URL session's queue,
// which ends the test program: "exactly once" needs no further check.
struct Awaited {
  Completion completion;
  std::future<bool> result;

  Awaited() {
    auto promise = std::make_shared<std::promise<bool>>();
    result = promise->get_future();
    completion = [promise](bool value) { promise->set_value(value); };
  }
  bool get() {
    const bool came = result.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(came) << "no completion";
    return came && result.get();
  }
};

// Installs a Linux platform that sends the service's requests to `baseUrl`, trusting `caFile` alone.
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
    Awaited call;
    Validation::validate(token, call.completion);
    return call.get();
  }
  static bool loggedIn(const std::string& user, const std::string& password, const std::string& scheme = "game") {
    Awaited call;
    Validation::loginWithUsername(user, password, scheme, call.completion);
    return call.get();
  }

  endpoint::HttpsServer server_;
};

}  // namespace tavrel::testing
