// The URL session against a real HTTPS server on 127.0.0.1.

#include "platform/url_session.hpp"

#include "endpoint/https_server.hpp"
#include "platform/sim_platform.hpp"

#include <gtest/gtest.h>

#include <atomic>
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
constexpr auto kReady = std::future_status::ready;

UrlRequest get(std::string url) { return {std::move(url), "GET", {}, ""}; }

// Handlers and routes hold their state by shared_ptr: after a failed assertion they may still
// run on other threads while the test unwinds.
class UrlSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.start();
    platform_->setTrustedCertificatesFile(server_.caFile());
  }

  // A second call of the completion throws on the session's queue, which ends the program.
  std::future<UrlResponse> start(UrlRequest request) {
    auto done = std::make_shared<std::promise<UrlResponse>>();
    platform_->dataTask(std::move(request), [done](UrlResponse r) { done->set_value(std::move(r)); });
    return done->get_future();
  }
  static UrlResponse await(std::future<UrlResponse> result) {
    if (result.wait_for(kPatience) == kReady) return result.get();
    ADD_FAILURE() << "no completion";
    return {};
  }
  UrlResponse fetch(UrlRequest request) { return await(start(std::move(request))); }

  HttpsServer server_;
  std::shared_ptr<Platform> platform_ = Platform::makeLinux();
};

TEST_F(UrlSessionTest, SendsExactlyWhatTheRequestNamesAndPassesTheReplyThrough) {
  server_.addRoute("GET", "/m/launch/project/validate", [](auto&) { return Reply{401, R"({"valid":false})"}; });
  server_.addRoute("POST", "/m/launch/project/auth/ios", [](auto& r) { return Reply{201, "echo:" + r.body}; });
  const std::string binary("GEV\n1\n\0\x01\xff tail", 14);
  // No header of curl's own beyond these: no Accept, no Expect on uploads.
  const std::tuple<UrlRequest, std::set<std::string>, long, std::string> cases[] = {
      {{server_.url("/m/launch/project/validate"), "GET", {{"Authorization", "token-1"}}, ""},
       {"Host", "Authorization"}, 401, R"({"valid":false})"},
      {{server_.url("/m/launch/project/auth/ios"), "POST",
        {{"Accept", "application/json"}, {"Content-Type", "application/json"}}, R"({"username":"u"})"},
       {"Host", "Accept", "Content-Type", "Content-Length"}, 201, R"(echo:{"username":"u"})"},
      {{server_.url("/up/game.evt?sig=a%2Fb"), "PUT", {{"Content-Type", "application/octet-stream"}}, binary},
       {"Host", "Content-Type", "Content-Length"}, 200, ""},
      {{server_.url("/up/empty.evt"), "PUT", {}, ""}, {"Host", "Content-Length"}, 200, ""},
  };
  for (const auto& [request, headers, status, data] : cases) {
    SCOPED_TRACE(request.method + " " + request.url);
    server_.clearRequests();
    const UrlResponse response = fetch(request);
    EXPECT_FALSE(response.error) << *response.error;
    EXPECT_EQ(std::tie(response.statusCode, response.data), std::tie(status, data));

    const auto seen = server_.requests();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(std::tuple(seen[0].method, server_.url(seen[0].target), seen[0].body),
              std::tie(request.method, request.url, request.body));
    std::set<std::string> names;
    for (const auto& header : seen[0].headers) names.insert(header.first);
    EXPECT_EQ(names, headers);
    for (const auto& [name, value] : request.headers) EXPECT_EQ(seen[0].header(name), value);
  }
}

TEST_F(UrlSessionTest, NoHttpReplyGivesAnErrorAndNothingElse) {
  HttpsServer untrusted;
  untrusted.start();
  HttpsServer stopped;
  stopped.start();
  const std::string refusedUrl = stopped.url("/gone");
  stopped.stop();

  server_.dropConnections(1);  // the first request to reach it: no other one should
  const UrlRequest cases[] = {
      {server_.url("/up/a.evt"), "PUT", {}, "body"},
      get(refusedUrl), get(untrusted.url("/m/launch/project/validate")), get(""), get("::not a url::"),
      get("https://127.0.0.1:99999/x"), get("file:///etc/passwd"), get(server_.url("/a") + std::string(1, '\0') + "b"),
      {server_.url("/a"), "GET", {{"Authorization", "t\r\nX-Evil: 1"}}, ""},
      {server_.url("/a"), "GET /b", {}, ""},
  };
  for (const UrlRequest& request : cases) {
    SCOPED_TRACE(request.method + " " + request.url);
    const UrlResponse response = fetch(request);
    EXPECT_NE(response.error.value_or(""), "");
    EXPECT_EQ(std::tie(response.statusCode, response.data), std::tuple(0, ""));
  }
  EXPECT_EQ(server_.requestCount(), 1u);
  EXPECT_EQ(untrusted.requestCount(), 0u);
}

TEST_F(UrlSessionTest, TenRequestsRunAtOnceAndEachCompletesOnce) {
  // The route holds every request until all ten have arrived: a session that ran them one after
  // another would leave the first waiting (and then answered 504).
  constexpr int kRequests = 10;
  auto arrived = std::make_shared<std::atomic<int>>(0);
  auto all = std::make_shared<std::promise<void>>();
  server_.addRoute("PUT", "/barrier", [arrived, all, open = all->get_future().share()](const RecordedRequest& r) {
    if (++*arrived == kRequests) all->set_value();
    return Reply{open.wait_for(kPatience) == kReady ? 200 : 504, r.body};
  });
  std::vector<std::future<UrlResponse>> results;
  for (int i = 0; i < kRequests; ++i) results.push_back(start({server_.url("/barrier"), "PUT", {}, std::to_string(i)}));
  for (int i = 0; i < kRequests; ++i) {
    const UrlResponse response = await(std::move(results[i]));
    EXPECT_EQ(std::tie(response.statusCode, response.data), std::tuple(200, std::to_string(i)));
  }
}

TEST_F(UrlSessionTest, CompletionsRunInOrderOnOneQueueThatDoesNotHoldUpTransfers) {
  auto release = std::make_shared<std::promise<void>>();
  auto first = std::make_shared<std::promise<std::thread::id>>();
  auto second = std::make_shared<std::promise<std::thread::id>>();
  platform_->dataTask({server_.url("/first"), "PUT", {}, "1"},
                      [first, released = release->get_future().share()](UrlResponse) {
                        first->set_value(std::this_thread::get_id());
                        released.wait_for(kPatience);  // as the upload retry's sleep on the completion thread
                      });
  auto firstThread = first->get_future();
  ASSERT_EQ(firstThread.wait_for(kPatience), kReady);
  platform_->dataTask({server_.url("/second"), "PUT", {}, "2"},
                      [second](UrlResponse) { second->set_value(std::this_thread::get_id()); });
  auto secondThread = second->get_future();
  // The second transfer goes out while the first completion is still blocked, but its completion
  // waits its turn.
  EXPECT_TRUE(server_.waitForRequests(2, kPatience));
  EXPECT_NE(secondThread.wait_for(100ms), kReady);
  release->set_value();
  ASSERT_EQ(secondThread.wait_for(kPatience), kReady);
  const std::thread::id queue = firstThread.get();
  EXPECT_EQ(secondThread.get(), queue);
  EXPECT_NE(queue, std::this_thread::get_id());
}

TEST_F(UrlSessionTest, ShuttingDownCompletesTransfersInFlightWithAnError) {
  auto arrived = std::make_shared<std::promise<void>>();
  auto release = std::make_shared<std::promise<void>>();
  server_.addRoute("GET", "/slow", [arrived, released = release->get_future().share()](const RecordedRequest&) {
    arrived->set_value();
    released.wait_for(kPatience);
    return Reply{};
  });
  auto result = start(get(server_.url("/slow")));
  ASSERT_EQ(arrived->get_future().wait_for(kPatience), kReady);
  platform_.reset();  // its session goes with it
  EXPECT_TRUE(await(std::move(result)).error.has_value());
  release->set_value();
}

TEST_F(UrlSessionTest, ASimulationRunUntilIdleWaitsForTheRequestInFlight) {
  server_.delayReplies(200ms);
  auto sim = SimPlatform::create();
  sim->setTrustedCertificatesFile(server_.caFile());
  std::optional<UrlResponse> received;
  sim->dataTask({server_.url("/up/game.evt"), "PUT", {}, "GEV\n1\n"}, [&](UrlResponse r) { received = std::move(r); });
  sim->runUntilIdle();
  ASSERT_TRUE(received.has_value());
  EXPECT_FALSE(received->error) << *received->error;
  EXPECT_EQ(received->statusCode, 200);
}

}  // namespace
}  // namespace tavrel
