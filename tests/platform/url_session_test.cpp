#include "platform/url_session.hpp"

#include "endpoint/https_server.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
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
    EXPECT_EQ(result.wait_for(kPatience), kReady) << "no completion";
    return result.wait_for(0s) == kReady ? result.get() : UrlResponse{};
  }
  UrlResponse fetch(UrlRequest request) { return await(start(std::move(request))); }

  HttpsServer server_;
  std::shared_ptr<Platform> platform_ = Platform::makeLinux();
};

TEST_F(UrlSessionTest, SendsExactlyWhatTheRequestNamesAndPassesTheReplyThrough) {
  server_.addRoute("PUT", "/up/created.evt", [](auto& r) { return Reply{201, "echo:" + r.body}; });
  const std::string binary("GEV\n1\n\0\x01\xff tail", 14);
  // No header of curl's own beyond these: no Accept, no Expect on uploads.
  const std::tuple<UrlRequest, std::set<std::string>, long, std::string> cases[] = {
      {{server_.url("/up/game.evt?sig=a%2Fb"), "PUT", {{"Content-Type", "application/octet-stream"}}, binary},
       {"Host", "Content-Type", "Content-Length"}, 200, ""},
      {{server_.url("/up/empty.evt"), "PUT", {}, ""}, {"Host", "Content-Length"}, 200, ""},
      {{server_.url("/up/empty.evt"), "PATCH", {}, ""}, {"Host", "Content-Length"}, 404, ""},
      // A header as long as Accept and Expect is not taken for either.
      {{server_.url("/up/created.evt"), "PUT", {{"Origin", "https://h"}}, "x"}, {"Host", "Origin", "Content-Length"},
       201, "echo:x"},
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

TEST_F(UrlSessionTest, ABodyOverTheLimitFailsAndADroppedBodyKeepsTheStatus) {
  constexpr std::size_t kLimit = 1024 * 1024;
  const std::string piece(64 * 1024, 'x');
  server_.addRoute("GET", "/announced", [](auto&) { return Reply{200, std::string(kLimit + 1, 'x')}; });
  server_.addRoute("GET", "/exact", [](auto&) { return Reply{200, std::string(kLimit, 'x')}; });
  // Chunked, with no length announced: refused as it crosses the limit, not at the end.
  server_.addRoute("GET", "/streamed", [piece](auto&) { return Reply{.status = 201, .body = piece, .repeat = 64}; });
  const auto limited = [&](const std::string& path, bool keep = true) {
    UrlRequest bounded = get(server_.url(path));
    bounded.maxResponseBytes = kLimit;
    bounded.keepsResponseBody = keep;
    return fetch(bounded);
  };
  for (const std::string path : {"/announced", "/streamed"}) {
    const UrlResponse response = limited(path);
    EXPECT_EQ(response.error, "the reply is larger than 1048576 bytes") << path;
    EXPECT_EQ(std::tie(response.statusCode, response.data), std::tuple(0, "")) << path;
  }
  EXPECT_EQ(limited("/exact").data.size(), kLimit);
  const UrlResponse dropped = limited("/streamed", false);
  EXPECT_EQ(std::tie(dropped.error, dropped.statusCode, dropped.data), std::tuple(std::nullopt, 201, ""));
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
  // The second transfer goes out while the first completion is blocked; its completion waits.
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

// Declared after the session's platform, so it stops first, with the session's connections still open.
class KeptConnectionsTest : public UrlSessionTest {
 protected:
  void SetUp() override {
    UrlSessionTest::SetUp();
    kept_.start();
    platform_->setTrustedCertificatesFile(kept_.caFile());
  }
  UrlResponse put(const std::string& path) { return fetch({kept_.url(path), "PUT", {}, path}); }

  HttpsServer kept_{HttpsServer::Options{.keepAlive = true}};
};

class RedirectsTest : public KeptConnectionsTest {
 protected:
  void SetUp() override {
    KeptConnectionsTest::SetUp();
    for (const char* method : {"GET", "POST", "PUT"}) {
      kept_.addRoute(method, "/landing", [](const RecordedRequest& r) {
        return Reply{200, r.method + " " + r.body + " auth=" + r.header("Authorization").value_or("-")};
      });
      for (int status : {301, 302, 303, 307, 308}) redirect(method, "/r" + std::to_string(status), status, "/landing");
    }
  }
  void redirect(const std::string& method, const std::string& path, int status, const std::string& location) {
    kept_.addRoute(method, path, [status, location](auto&) {
      return Reply{.status = status, .body = "moved", .contentType = "text/plain", .headers = {{"Location", location}}};
    });
  }
  UrlResponse send(const std::string& method, const std::string& path) {
    if (method == "GET") return fetch({kept_.url(path), method, {{"Authorization", "t"}}, ""});
    return fetch({kept_.url(path), method, {{"Authorization", "t"}, {"Content-Type", "text/plain"}}, "body"});
  }
};

TEST_F(RedirectsTest, EachStatusKeepsOrChangesTheMethodOnTheSameConnection) {
  const std::tuple<std::string, int, std::string> cases[] = {
      {"GET", 301, "GET  auth=t"},       {"GET", 308, "GET  auth=t"},       {"POST", 301, "GET  auth=t"},
      {"POST", 302, "GET  auth=t"},      {"POST", 303, "GET  auth=t"},      {"POST", 307, "POST body auth=t"},
      {"POST", 308, "POST body auth=t"}, {"PUT", 301, "PUT body auth=t"},   {"PUT", 302, "PUT body auth=t"},
      {"PUT", 303, "GET  auth=t"},       {"PUT", 307, "PUT body auth=t"},   {"PUT", 308, "PUT body auth=t"},
  };
  for (const auto& [method, status, landed] : cases) {
    const UrlResponse response = send(method, "/r" + std::to_string(status));
    EXPECT_EQ(std::tie(response.statusCode, response.data), std::tuple(200, landed)) << method << " " << status;
  }
  const auto seen = kept_.requests();
  EXPECT_EQ(seen.size(), 2 * std::size(cases));
  for (const auto& r : seen) {
    EXPECT_EQ(r.header("Content-Type").has_value(), r.method != "GET") << r.method;
    EXPECT_EQ(r.connection, 1u) << "a redirect is no reason for a new connection";
  }
}

TEST_F(RedirectsTest, TheTokenStaysWithItsOriginAndNoHopLeavesHttpsOrGoesOnForEver) {
  const std::string port = std::to_string(kept_.port());
  redirect("GET", "/to-localhost", 302, "https://localhost:" + port + "/landing");
  redirect("GET", "/to-localhost-and-back", 302, "https://localhost:" + port + "/back");
  redirect("GET", "/back", 302, "https://127.0.0.1:" + port + "/landing");
  redirect("GET", "/to-http", 302, "http://127.0.0.1:" + port + "/landing");
  redirect("GET", "/loop", 307, "/loop");
  kept_.addRoute("GET", "/nowhere", [](auto&) { return Reply{302, "no Location"}; });

  EXPECT_EQ(send("GET", "/to-localhost").data, "GET  auth=-") << "another host name is another host";
  EXPECT_EQ(send("GET", "/to-localhost-and-back").data, "GET  auth=-") << "dropped for good";
  EXPECT_EQ(send("GET", "/to-http").error, "redirect from https to http refused");
  kept_.clearRequests();
  EXPECT_EQ(send("GET", "/loop").error, "more than 16 redirects");
  EXPECT_EQ(kept_.requestCount(), 17u);
  const UrlResponse unmoved = send("GET", "/nowhere");
  EXPECT_EQ(std::tie(unmoved.statusCode, unmoved.data), std::tuple(302, "no Location"));
}

TEST_F(KeptConnectionsTest, ChangedCertificatesAreTrustedAsTheyAreNow) {
  testing::TemporaryDirectory directory;
  const std::string trusted = directory.path() + "/trusted.pem";
  std::filesystem::copy_file(kept_.caFile(), trusted);
  platform_->setTrustedCertificatesFile(trusted);
  EXPECT_EQ(put("/up/a").statusCode, 200);
  std::filesystem::copy_file(server_.caFile(), trusted, std::filesystem::copy_options::overwrite_existing);
  EXPECT_TRUE(put("/up/b").error.has_value());
  EXPECT_EQ(kept_.requestCount(), 1u);
}

TEST_F(KeptConnectionsTest, AConnectionClosedWhileIdleCostsNoRequestAndAFreshOneIsNeverResent) {
  EXPECT_EQ(put("/1").statusCode, 200);
  kept_.closeIdleConnections();
  EXPECT_EQ(put("/2").statusCode, 200);

  // The request meets the closed connection, then fails on a new one: that failure stands.
  kept_.closeIdleConnections();
  kept_.dropConnections(1);
  EXPECT_TRUE(put("/3").error.has_value());
  std::vector<std::pair<std::string, int>> seen;
  for (const auto& request : kept_.requests()) seen.emplace_back(request.path, request.status);
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, int>>{{"/1", 200}, {"/2", 200}, {"/3", 0}}));
  EXPECT_EQ(kept_.connectionsAccepted(), 3u);
}

TEST_F(KeptConnectionsTest, TenRequestsAtOnceKeepTenConnectionsThatOutliveTheServerClosingThem) {
  // Each round is held at the server until all ten have arrived, so each needs a connection.
  constexpr int kRequests = 10;
  struct Gate {
    std::promise<void> all;
    std::shared_future<void> open = all.get_future().share();
  };
  auto arrived = std::make_shared<std::atomic<int>>(0);
  auto gates = std::make_shared<std::array<Gate, 2>>();
  kept_.addRoute("PUT", "/barrier", [arrived, gates](const RecordedRequest& r) {
    const int n = ++*arrived;
    Gate& gate = (*gates)[std::min(n - 1, 2 * kRequests - 1) / kRequests];
    if (n % kRequests == 0) gate.all.set_value();
    return Reply{gate.open.wait_for(kPatience) == kReady ? 200 : 504, r.body};
  });
  for (int round = 0; round < 2; ++round) {
    std::vector<std::future<UrlResponse>> results;
    for (int i = 0; i < kRequests; ++i) results.push_back(start({kept_.url("/barrier"), "PUT", {}, std::to_string(i)}));
    for (int i = 0; i < kRequests; ++i) {
      const UrlResponse response = await(std::move(results[i]));
      EXPECT_EQ(std::tie(response.statusCode, response.data), std::tuple(200, std::to_string(i)));
    }
    EXPECT_EQ(kept_.connectionsAccepted(), 10u) << "round " << round;
  }
  // Every kept connection is now dead; the request still goes through, once.
  kept_.closeIdleConnections();
  EXPECT_EQ(put("/after").statusCode, 200);
  EXPECT_EQ(kept_.requestCount(), 21u);
  EXPECT_EQ(kept_.connectionsAccepted(), 11u);
}

}  // namespace
}  // namespace tavrel
