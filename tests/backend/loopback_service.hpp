#pragma once

// The real Linux platform talking HTTPS to a server on 127.0.0.1 that it alone trusts, and a
// probe for completions that arrive on the URL session's background queue.

#include <tavrel_sdk/platform.hpp>

#include "endpoint/https_server.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tavrel::testing {

// Every call of a set of numbered completions. Shared with the callbacks, so that a call
// arriving after a failed test has nothing to dangle on.
class Outcomes : public std::enable_shared_from_this<Outcomes> {
 public:
  static std::shared_ptr<Outcomes> make(std::size_t count) {
    return std::shared_ptr<Outcomes>(new Outcomes(count));
  }

  Completion completion(std::size_t index) {
    return [self = shared_from_this(), index](bool result) {
      std::lock_guard lock(self->mutex_);
      self->calls_[index].push_back(result);
      self->threads_.insert(std::this_thread::get_id());
      self->changed_.notify_all();
    };
  }

  // Waits until every completion has been called; false when one has not after `timeout`.
  bool waitAll(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] {
      for (const auto& results : calls_) {
        if (results.empty()) return false;
      }
      return true;
    });
  }

  std::vector<std::vector<bool>> calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  std::set<std::thread::id> threads() const {
    std::lock_guard lock(mutex_);
    return threads_;
  }

 private:
  explicit Outcomes(std::size_t count) : calls_(count) {}

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::vector<bool>> calls_;
  std::set<std::thread::id> threads_;
};

// Fixture: a started HTTPS server and the Linux platform installed with the server's
// certificate as its only trust and the server's base URL as the service's; log lines are kept.
class LoopbackServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.start();
    point(server_.baseUrl(), server_.caFile());
  }
  void TearDown() override { Platform::install(nullptr); }

  // Installs a fresh Linux platform aimed at `baseUrl`, trusting only `caFile`.
  void point(const std::string& baseUrl, const std::string& caFile) {
    auto platform = Platform::makeLinux();
    platform->setTrustedCertificatesFile(caFile);
    platform->setServiceBaseUrlForTesting(baseUrl);
    platform->setLogToStderr(false);
    platform->setLogSink([log = log_](std::string_view line) {
      std::lock_guard lock(log->mutex);
      log->lines.emplace_back(line);
    });
    Platform::install(std::move(platform));
  }

  // Starts one request and waits for its one result.
  static bool roundTrip(const std::function<void(Completion)>& start) {
    auto outcomes = Outcomes::make(1);
    start(outcomes->completion(0));
    EXPECT_TRUE(outcomes->waitAll()) << "no completion";
    const auto calls = outcomes->calls();
    return calls[0].size() == 1 && calls[0][0];
  }

  std::vector<std::string> logLines() const {
    std::lock_guard lock(log_->mutex);
    return log_->lines;
  }

  endpoint::HttpsServer server_{serverOptions()};

 private:
  // Room for every request of a test in flight at once.
  static endpoint::HttpsServer::Options serverOptions() {
    endpoint::HttpsServer::Options options;
    options.threads = 32;
    return options;
  }

  struct Log {
    std::mutex mutex;
    std::vector<std::string> lines;
  };
  std::shared_ptr<Log> log_ = std::make_shared<Log>();
};

}  // namespace tavrel::testing
