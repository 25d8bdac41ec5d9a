// Uploads to our HTTPS server in virtual time, and to s3rver, an S3-compatible server that checks
// each pre-signed URL's signature.

#include "endpoint/https_server.hpp"
#include "recording_fixture.hpp"
#include "session/launch_url.hpp"
#include "support/tool_runner.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <future>
#include <thread>

namespace tavrel::testing {
namespace {

class Uploads : public RecordingTest {
 protected:
  void SetUp() override {
    RecordingTest::SetUp();
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
  }

  void recordOneEventEach() {
    initialise(gameUrl(), server_.url("/i.evt"), originMs());
    sdk().emitGameEvent("jump", "level-1");
    sdk().emitInputEvent({3, 0, 7, 1});
  }

  std::string gameUrl() { return server_.url("/g.evt?sig=a%2Bb&exp=9"); }
  std::string gameName() { return _gameEventFilename.get().value_or(""); }

  std::shared_ptr<std::optional<bool>> upload(const std::optional<std::string>& name, const std::string& url,
                                              std::int32_t attempt) {
    auto uploaded = std::make_shared<std::optional<bool>>();
    sdk().uploadFileToUrl(name, url, attempt, [uploaded](bool result) { *uploaded = result; });
    return uploaded;
  }

  endpoint::HttpsServer server_;
};

TEST_F(Uploads, PassSendsEachChangedFileWholeAndA200ClearsItsFlag) {
  recordOneEventEach();
  advanceToMs(29000);
  EXPECT_EQ(server_.requestCount(), 0u) << "the first pass ran before any event";
  advanceToMs(30000);
  const auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 2u);
  for (const auto& request : requests) {
    EXPECT_EQ(std::tuple(request.method, request.header("Content-Type"), request.header("Authorization"), request.body),
              std::tuple("PUT", "application/octet-stream", std::nullopt,
                         readFile(request.path == "/g.evt" ? gameEventPath() : inputEventPath())));
  }
  EXPECT_EQ((requests[0].path == "/g.evt" ? requests[0] : requests[1]).target, "/g.evt?sig=a%2Bb&exp=9");
  EXPECT_EQ(logs("SDK > "),
            (std::vector<std::string>{"SDK > Uploading " + gameName() + " to " + gameUrl(),
                                      "SDK > Uploading " + _inputEventFilename.get().value() + " to " + server_.url("/i.evt")}));
  EXPECT_EQ(std::pair(_hasUpdatedGameEvents.load(), _hasUpdatedInputEvents.load()), std::pair(false, false));
  advanceToMs(60000);
  EXPECT_EQ(server_.requestCount(), 2u) << "clean files are not sent again";

  // Attempt 2 ends at once. A vanished file fails to read on every pass, its flag still set.
  sim().clearLog();
  EXPECT_EQ(*upload(gameName(), gameUrl(), 2), false);
  sdk().emitGameEvent("a", "e");
  std::filesystem::remove(gameEventPath());
  advanceToMs(120000);
  EXPECT_EQ(sim().logLines(), std::vector<std::string>(2, "SDK > Failed to read from " + gameEventPath()));
  EXPECT_EQ(server_.requestCount(), 2u);
  EXPECT_TRUE(_hasUpdatedGameEvents.load());
}

TEST_F(Uploads, AnyStatusBut200FailsOnceAndWaitsForTheNextPass) {
  // Set up again: one worker follows the new URL and file, and skips the log left without a URL
  // whatever its flag.
  recordOneEventEach();
  const std::string url = server_.url("/g2.evt");
  initialise(url, "", originMs());
  _hasUpdatedInputEvents = true;
  for (const int status : {201, 204, 500}) {
    server_.clearRequests();
    sim().clearLog();
    sdk().emitGameEvent("a", "e");
    server_.answerStatus(status, 1);
    sim().advance(30.0);
    EXPECT_EQ(server_.requestCount(), 1u) << status;
    EXPECT_EQ(logs(), std::vector<std::string>{"SDK > Failed with code " + std::to_string(status) + " to upload " +
                                               gameName() + " to " + url});
    EXPECT_TRUE(_hasUpdatedGameEvents.load()) << status;
    sim().advance(30.0);
    EXPECT_FALSE(_hasUpdatedGameEvents.load()) << status;
  }
  EXPECT_EQ(server_.latestBody("/g2.evt"), readFile(gameEventPath()));
  // Shut down, the simulation sends nothing more.
  sim().shutdown();
  server_.clearRequests();
  sim().dataTask({url, "PUT", {}, "late"}, [](UrlResponse) {});
  EXPECT_FALSE(server_.waitForRequests(1, std::chrono::milliseconds(300)));
}

TEST_F(Uploads, NoReplyOrNoUrlFailsTwiceWithAPauseAfterEach) {
  recordOneEventEach();
  server_.dropConnections();
  advanceToMs(10000);
  for (const std::string& url : {gameUrl(), std::string("not a url")}) {
    sim().clearLog();
    const auto uploaded = upload(gameName(), url, 0);
    // Each failed attempt, the retry's included, is followed by a 1 s pause.
    sim().advance(0.999);
    EXPECT_EQ(logs().size(), 1u) << url;
    sim().advance(1.0);
    EXPECT_EQ(logs(), std::vector<std::string>(2, "SDK > Failed to upload " + gameName() + " to " + url));
    EXPECT_FALSE(uploaded->has_value()) << "the second pause comes before the callback";
    sim().advance(0.002);
    EXPECT_EQ(*uploaded, false) << url;
  }
  EXPECT_EQ(server_.requestCount(), 2u);

  // The worker's pass fares the same, and the flags stay set for the pass after.
  server_.clearRequests();
  advanceToMs(40000);
  EXPECT_EQ(server_.requestCount(), 4u);
  EXPECT_EQ(std::pair(_hasUpdatedGameEvents.load(), _hasUpdatedInputEvents.load()), std::pair(true, true));

  // The retry reads the file anew, with what was written during the pause.
  server_.resetControls();
  server_.dropConnections(1);
  const auto uploaded = upload(gameName(), gameUrl(), 0);
  sim().advance(0.5);
  sdk().emitGameEvent("during", "pause");
  sim().advance(1.0);
  EXPECT_EQ(*uploaded, true);
  EXPECT_EQ(server_.latestBody("/g.evt"), readFile(gameEventPath()));
}

class SilentEndpoint : public Uploads {
 protected:
  SilentEndpoint() { simOptions.silentNetworkAfter = std::chrono::milliseconds(250); }
};

TEST_F(SilentEndpoint, EachAttemptTimesOutAfter60SecondsAndCountsAsNoReply) {
  // Each attempt is held at the server, and time moves on only once it got there: on a loaded
  // machine an attempt still on its way would look silent and start its 60 s late.
  auto arrived = std::make_shared<std::atomic<int>>(0);
  std::promise<void> release;
  server_.addRoute("PUT", "/g.evt", [arrived, held = release.get_future().share()](auto&) {
    ++*arrived;
    held.wait();
    return endpoint::Reply{};
  });
  const auto arrival = [&](int n) {
    for (int i = 0; i < 20000 && *arrived < n; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(*arrived, n);
  };
  recordOneEventEach();
  _hasUpdatedGameEvents = _hasUpdatedInputEvents = false;  // the worker's passes send nothing
  advanceToMs(10000);
  const auto uploaded = upload(gameName(), gameUrl(), 0);
  const std::string failed = "SDK > Failed to upload " + gameName() + " to " + gameUrl();
  arrival(1);
  sim().advance(59.9);
  EXPECT_EQ(logs().size(), 0u);
  sim().advance(0.2);
  EXPECT_EQ(logs(), std::vector<std::string>(1, failed));
  sim().advance(0.95);  // the pause
  arrival(2);
  sim().advance(60.05);
  EXPECT_EQ(logs(), std::vector<std::string>(2, failed));
  EXPECT_FALSE(uploaded->has_value());
  sim().advance(1.0);
  EXPECT_EQ(*uploaded, false);
  release.set_value();
}

using ObjectStore = RecordingTest;

// Signature version 2, with both "+" and "/" in it: a client that re-encodes the query breaks it.
std::string presignedPut(const std::string& port, const std::string& key, const std::string& secret) {
  for (std::int64_t expires = std::time(nullptr) + 3600;; ++expires) {
    const std::string text = "PUT\n\napplication/octet-stream\n" + std::to_string(expires) + "\n/uploads/" + key;
    unsigned char mac[EVP_MAX_MD_SIZE], base64[64];
    unsigned int macLength = 0;
    HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), mac, &macLength);
    const std::string signature(reinterpret_cast<const char*>(base64),
                                static_cast<std::size_t>(EVP_EncodeBlock(base64, mac, static_cast<int>(macLength))));
    if (signature.find('+') == std::string::npos || signature.find('/') == std::string::npos) continue;
    std::string encoded;
    for (const char c : signature) encoded += c == '+' ? "%2B" : c == '/' ? "%2F" : c == '=' ? "%3D" : std::string(1, c);
    return "http://127.0.0.1:" + port + "/uploads/" + key + "?AWSAccessKeyId=S3RVER&Expires=" +
           std::to_string(expires) + "&Signature=" + encoded;
  }
}

TEST_F(ObjectStore, ARightSignatureStoresTheFileByteForByteAndAWrongOneIsRefused) {
  if (!std::filesystem::exists(TAVREL_S3RVER)) GTEST_SKIP() << TAVREL_S3RVER << " is missing (scripts/setup installs it)";
  TemporaryDirectory store;
  ChildProcess s3rver({TAVREL_S3RVER, "--silent", "-a", "127.0.0.1", "-p", "0", "-d", store.path(),
                       "--configure-bucket", "uploads"});
  std::string port;
  for (std::string line; port.empty() && (!(line = s3rver.readLine()).empty() || !s3rver.ended());) {
    if (line.starts_with("S3rver listening on")) port = line.substr(line.rfind(':') + 1);
  }
  ASSERT_FALSE(port.empty()) << "s3rver did not start";

  // The input log's URL is signed with another secret: refused, and its file waits for the next pass.
  sdk().processUrlRequest(composeLaunchUrl({"tavreldemo", "object-store-token-00000" "player-s3-00000000000001",
                                            presignedPut(port, "g.evt", "S3RVER"),
                                            presignedPut(port, "i.evt", "another secret"), originMs()}));
  sim().runUntilIdle();
  for (int i = 0; i < 5; ++i) {
    sdk().emitGameEvent("level-" + std::to_string(i), "start");
    sdk().emitInputEvent({6, 0, 6, i, 100 * i, 200, 0});
  }
  sim().advance(30);
  EXPECT_EQ(readFile(store.path() + "/uploads/g.evt._S3rver_object"), readFile(gameEventPath()));
  EXPECT_FALSE(std::filesystem::exists(store.path() + "/uploads/i.evt._S3rver_object"));
  ASSERT_EQ(logs().size(), 1u);
  EXPECT_TRUE(logs()[0].starts_with("SDK > Failed with code 403 to upload " + _inputEventFilename.get().value()))
      << logs()[0];
  EXPECT_EQ(std::pair(_hasUpdatedGameEvents.load(), _hasUpdatedInputEvents.load()), std::pair(false, true));
}

}  // namespace
}  // namespace tavrel::testing
