// The URL session against a real HTTPS server on 127.0.0.1.

#include "platform/url_session.hpp"

#include "endpoint/https_server.hpp"
#include "platform/sim_platform.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <condition_variable>
#include <future>
#include <set>
#include <thread>

namespace tavrel {
namespace {

using endpoint::HttpsServer;
using endpoint::RecordedRequest;
using endpoint::Reply;
using namespace std::chrono_literals;

constexpr auto kPatience = 20s;

UrlRequest get(std::string url) {
  UrlRequest request;
  request.url = std::move(url);
  return request;
}

std::set<std::string> headerNames(const RecordedRequest& request) {
  std::set<std::string> names;
  for (const auto& header : request.headers) {
    std::string name = header.first;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    names.insert(name);
  }
  return names;
}

class UrlSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.start();
    platform_->setTrustedCertificatesFile(server_.caFile());
  }

  UrlResponse fetch(UrlRequest request) {
    auto done = std::make_shared<std::promise<UrlResponse>>();
    auto result = done->get_future();
    platform_->dataTask(std::move(request), [done](UrlResponse response) { done->set_value(std::move(response)); });
    if (result.wait_for(kPatience) != std::future_status::ready) {
      ADD_FAILURE() << "no completion";
      return {};
    }
    return result.get();
  }

  HttpsServer server_;
  std::shared_ptr<Platform> platform_ = Platform::makeLinux();
};

TEST_F(UrlSessionTest, SendsExactlyWhatTheRequestNamesAndPassesTheReplyThrough) {
  server_.addRoute("GET", "/m/launch/project/validate", [](const RecordedRequest&) {
    return Reply{401, R"({"valid":false})"};
  });
  server_.addRoute("POST", "/m/launch/project/auth/ios", [](const RecordedRequest& r) {
    return Reply{201, "echo:" + r.body};
  });
  const std::string binary("GEV\n1\n\0\x01\xff tail", 14);
  struct Case {
    UrlRequest request;
    int forcedStatus;  // 0: what the server answers by itself
    std::set<std::string> expectedHeaders;
    long expectedStatus;
    std::string expectedData;
  };
  const Case cases[] = {
      {{server_.url("/m/launch/project/validate"), "GET", {{"Authorization", "token-1"}}, ""},
       0, {"host", "authorization"}, 401, R"({"valid":false})"},
      {{server_.url("/m/launch/project/auth/ios"), "POST",
        {{"Accept", "application/json"}, {"Content-Type", "application/json"}}, R"({"username":"u"})"},
       0, {"host", "accept", "content-type", "content-length"}, 201, R"(echo:{"username":"u"})"},
      {{server_.url("/up/game.evt?sig=a%2Fb"), "PUT", {{"Content-Type", "application/octet-stream"}}, binary},
       0, {"host", "content-type", "content-length"}, 200, ""},
      {{server_.url("/up/input.evt"), "PUT", {}, "x"}, 500, {"host", "content-length"}, 500, ""},
      {{server_.url("/up/empty.evt"), "PUT", {}, ""}, 0, {"host", "content-length"}, 200, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.request.method + " " + c.request.url);
    server_.clearRequests();
    server_.resetControls();
    if (c.forcedStatus != 0) server_.answerStatus(c.forcedStatus);

    const UrlResponse response = fetch(c.request);
    EXPECT_FALSE(response.error.has_value()) << *response.error;
    EXPECT_EQ(response.statusCode, c.expectedStatus);
    EXPECT_EQ(response.data, c.expectedData);

    const auto seen = server_.requests();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].method, c.request.method);
    EXPECT_EQ(server_.url(seen[0].target), c.request.url);
    EXPECT_EQ(seen[0].body, c.request.body);
    EXPECT_EQ(headerNames(seen[0]), c.expectedHeaders);
    for (const auto& [name, value] : c.request.headers) EXPECT_EQ(seen[0].header(name), value);
    const bool stored = c.request.method == "PUT" && c.expectedStatus == 200;
    EXPECT_EQ(server_.latestBody(seen[0].path), stored ? std::optional(c.request.body) : std::nullopt);
  }
}

TEST_F(UrlSessionTest, NoHttpReplyGivesAnErrorAndNothingElse) {
  HttpsServer untrusted;
  untrusted.start();
  HttpsServer stopped;
  stopped.start();
  const std::string refusedUrl = stopped.url("/gone");
  stopped.stop();

  struct Case {
    const char* what;
    UrlRequest request;
    bool drop;
  };
  const Case cases[] = {
      {"connection refused", get(refusedUrl), false},
      {"connection dropped", {server_.url("/up/a.evt"), "PUT", {}, "body"}, true},
      {"certificate not trusted", get(untrusted.url("/m/launch/project/validate")), false},
      {"no URL at all", get(""), false},
      {"not a URL", get("::not a url::"), false},
      {"bad port", get("https://127.0.0.1:99999/x"), false},
      {"not http", get("file:///etc/passwd"), false},
      {"NUL in the URL", get(server_.url("/a") + std::string(1, '\0') + "b"), false},
      {"line break in a header", {server_.url("/a"), "GET", {{"Authorization", "t\r\nX-Evil: 1"}}, ""}, false},
      {"method with a space", {server_.url("/a"), "GET /b", {}, ""}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    server_.resetControls();
    if (c.drop) server_.dropConnections(1);
    const UrlResponse response = fetch(c.request);
    ASSERT_TRUE(response.error.has_value());
    EXPECT_FALSE(response.error->empty());
    EXPECT_EQ(response.statusCode, 0);
    EXPECT_EQ(response.data, "");
  }
  // Only the dropped request got as far as a server.
  EXPECT_EQ(server_.requestCount(), 1u);
  EXPECT_EQ(untrusted.requestCount(), 0u);
}

// Handlers and routes below hold their state by shared_ptr: after a failed assertion they may
// still run on other threads while the test unwinds.

TEST_F(UrlSessionTest, TenRequestsRunAtOnceAndEachCompletesOnce) {
  // The route holds every request until all ten have arrived: a session that ran them one after
  // another would leave the first waiting (and then answered 504).
  constexpr int kRequests = 10;
  struct Barrier {
    std::mutex mutex;
    std::condition_variable arrived;
    int count = 0;
  };
  auto barrier = std::make_shared<Barrier>();
  server_.addRoute("PUT", "/barrier", [barrier](const RecordedRequest& r) {
    std::unique_lock lock(barrier->mutex);
    ++barrier->count;
    barrier->arrived.notify_all();
    const bool all = barrier->arrived.wait_for(lock, kPatience, [&] { return barrier->count >= kRequests; });
    return Reply{all ? 200 : 504, r.body, "text/plain"};
  });

  struct Results {
    std::mutex mutex;
    std::condition_variable completed;
    std::vector<int> calls = std::vector<int>(kRequests, 0);
    std::vector<UrlResponse> responses = std::vector<UrlResponse>(kRequests);
  };
  auto results = std::make_shared<Results>();
  for (int i = 0; i < kRequests; ++i) {
    platform_->dataTask({server_.url("/barrier?i=" + std::to_string(i)), "PUT", {}, "body " + std::to_string(i)},
                        [results, i](UrlResponse response) {
                          std::lock_guard lock(results->mutex);
                          ++results->calls[i];
                          results->responses[i] = std::move(response);
                          results->completed.notify_all();
                        });
  }
  std::unique_lock lock(results->mutex);
  ASSERT_TRUE(results->completed.wait_for(lock, kPatience, [&] {
    return std::all_of(results->calls.begin(), results->calls.end(), [](int n) { return n > 0; });
  }));
  lock.unlock();
  std::this_thread::sleep_for(50ms);  // room for a stray second call to show
  lock.lock();
  for (int i = 0; i < kRequests; ++i) {
    EXPECT_EQ(results->calls[i], 1) << i;
    EXPECT_EQ(results->responses[i].statusCode, 200) << i;
    EXPECT_EQ(results->responses[i].data, "body " + std::to_string(i));
  }
}

TEST_F(UrlSessionTest, CompletionsRunInOrderOnOneQueueThatDoesNotHoldUpTransfers) {
  struct Shared {
    std::promise<std::thread::id> firstStarted;
    std::promise<void> releaseFirst;
    std::shared_future<void> release = releaseFirst.get_future().share();
    std::atomic<bool> firstDone{false};
    std::atomic<bool> secondRan{false};
    std::promise<std::thread::id> secondRunsOn;
  };
  auto shared = std::make_shared<Shared>();

  platform_->dataTask({server_.url("/first"), "PUT", {}, "1"}, [shared](UrlResponse) {
    shared->firstStarted.set_value(std::this_thread::get_id());
    shared->release.wait_for(kPatience);  // as the upload retry's sleep on the completion thread
    shared->firstDone = true;
  });
  auto firstStarted = shared->firstStarted.get_future();
  ASSERT_EQ(firstStarted.wait_for(kPatience), std::future_status::ready);
  const std::thread::id firstThread = firstStarted.get();

  platform_->dataTask({server_.url("/second"), "PUT", {}, "2"}, [shared](UrlResponse response) {
    EXPECT_TRUE(shared->firstDone.load());
    EXPECT_EQ(response.statusCode, 200);
    shared->secondRan = true;
    shared->secondRunsOn.set_value(std::this_thread::get_id());
  });
  // The second transfer goes out while the first completion is still blocked...
  EXPECT_TRUE(server_.waitForRequests(2, kPatience));
  std::this_thread::sleep_for(100ms);
  // ...but its completion waits its turn.
  EXPECT_FALSE(shared->secondRan.load());
  shared->releaseFirst.set_value();

  auto second = shared->secondRunsOn.get_future();
  ASSERT_EQ(second.wait_for(kPatience), std::future_status::ready);
  const std::thread::id secondThread = second.get();
  EXPECT_EQ(secondThread, firstThread);
  EXPECT_NE(secondThread, std::this_thread::get_id());
}

TEST_F(UrlSessionTest, ShuttingDownCompletesTransfersInFlightWithAnError) {
  struct Shared {
    std::promise<void> arrived;
    std::promise<void> releaseReply;
    std::shared_future<void> release = releaseReply.get_future().share();
    std::promise<UrlResponse> done;
  };
  auto shared = std::make_shared<Shared>();
  server_.addRoute("GET", "/slow", [shared](const RecordedRequest&) {
    shared->arrived.set_value();
    shared->release.wait_for(kPatience);
    return Reply{};
  });
  auto result = shared->done.get_future();
  {
    UrlSession session(*platform_);
    session.dataTask(get(server_.url("/slow")), [shared](UrlResponse r) { shared->done.set_value(std::move(r)); });
    ASSERT_EQ(shared->arrived.get_future().wait_for(kPatience), std::future_status::ready);
  }
  ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
  const UrlResponse response = result.get();
  EXPECT_TRUE(response.error.has_value());
  EXPECT_EQ(response.statusCode, 0);
  shared->releaseReply.set_value();
}

TEST(UrlSessionSimulatedTest, RunUntilIdleWaitsForTheRequestInFlight) {
  HttpsServer server;
  server.start();
  server.delayReplies(200ms);
  auto sim = SimPlatform::create();
  sim->setTrustedCertificatesFile(server.caFile());

  std::optional<UrlResponse> received;
  std::thread::id completionThread;
  sim->dataTask({server.url("/up/game.evt"), "PUT", {}, "GEV\n1\n"}, [&](UrlResponse response) {
    completionThread = std::this_thread::get_id();
    received = std::move(response);
  });
  sim->runUntilIdle();

  ASSERT_TRUE(received.has_value());
  EXPECT_FALSE(received->error.has_value());
  EXPECT_EQ(received->statusCode, 200);
  EXPECT_NE(completionThread, std::this_thread::get_id());
  EXPECT_EQ(server.latestBody("/up/game.evt"), "GEV\n1\n");
}

}  // namespace
}  // namespace tavrel
