// The upload worker against a real HTTPS server on 127.0.0.1, in virtual time.

#include "endpoint/https_server.hpp"
#include "recording_fixture.hpp"

#include <filesystem>
#include <mutex>

namespace tavrel::testing {
namespace {

using endpoint::HttpsServer;
using endpoint::RecordedRequest;

class Uploads : public RecordingTest {
 protected:
  Uploads() : server_(serverOptions()) {}

  void SetUp() override {
    RecordingTest::SetUp();
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
  }

  HttpsServer::Options serverOptions() {
    HttpsServer::Options options;
    options.onRecord = [this](const RecordedRequest&) {
      std::lock_guard lock(mutex_);
      requestTimes_.push_back(sim().elapsed());
    };
    return options;
  }

  // Both logs recording to the server, with one event each written.
  void recordOneEventEach() {
    initialise(gameUrl(), inputUrl(), originMs());
    sdk().emitGameEvent("jump", "level-1");
    sdk().emitInputEvent({3, 0, 7, 1});
  }

  std::string gameUrl() { return server_.url("/g.evt?sig=a%2Bb&exp=9"); }
  std::string inputUrl() { return server_.url("/i.evt"); }
  std::string gameName() { return _gameEventFilename.get().value_or(""); }

  // Calls uploadFileToUrl on the main thread; the result and its virtual time land in `outcome`.
  struct Outcome {
    std::optional<bool> uploaded;
    double at = -1;
  };
  void upload(const std::optional<std::string>& name, const std::string& url, std::int32_t attempt,
              std::shared_ptr<Outcome> outcome) {
    sdk().uploadFileToUrl(name, url, attempt, [this, outcome](bool uploaded) {
      outcome->uploaded = uploaded;
      outcome->at = sim().elapsed();
    });
  }

  std::vector<double> requestTimes() {
    std::lock_guard lock(mutex_);
    return requestTimes_;
  }

  HttpsServer server_;

 private:
  std::mutex mutex_;
  std::vector<double> requestTimes_;
};

TEST_F(Uploads, PassSendsEachChangedFileWholeAndA200ClearsItsFlag) {
  recordOneEventEach();
  advanceToMs(29000);
  EXPECT_EQ(server_.requestCount(), 0u) << "the first pass ran before any event";
  advanceToMs(30000);
  const auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 2u);
  for (const auto& request : requests) {
    EXPECT_EQ(request.method, "PUT");
    EXPECT_EQ(request.header("Content-Type"), "application/octet-stream");
    EXPECT_FALSE(request.header("Authorization"));
    EXPECT_EQ(request.body, readFile(request.path == "/g.evt" ? gameEventPath() : inputEventPath()));
  }
  const auto& game = requests[0].path == "/g.evt" ? requests[0] : requests[1];
  EXPECT_EQ(game.target, "/g.evt?sig=a%2Bb&exp=9");
  EXPECT_EQ(logsStartingWith("SDK > "),
            (std::vector<std::string>{"SDK > Uploading " + gameName() + " to " + gameUrl(),
                                      "SDK > Uploading " + _inputEventFilename.get().value() + " to " + inputUrl()}));
  EXPECT_FALSE(_hasUpdatedGameEvents.load());
  EXPECT_FALSE(_hasUpdatedInputEvents.load());

  advanceToMs(60000);
  EXPECT_EQ(server_.requestCount(), 2u) << "clean files are not sent again";
}

TEST_F(Uploads, AnyStatusBut200FailsOnceAndWaitsForTheNextPass) {
  initialise(gameUrl(), std::nullopt, originMs());
  for (const int status : {201, 204, 500}) {
    server_.clearRequests();
    sim().clearLog();
    sdk().emitGameEvent("a", "e");
    server_.answerStatus(status, 1);
    sim().advance(30.0);
    EXPECT_EQ(server_.requestCount(), 1u) << status;
    EXPECT_EQ(logsStartingWith("SDK > Failed"),
              std::vector<std::string>{"SDK > Failed with code " + std::to_string(status) + " to upload " +
                                       gameName() + " to " + gameUrl()});
    EXPECT_TRUE(_hasUpdatedGameEvents.load()) << status;
    sim().advance(30.0);
    EXPECT_EQ(server_.requestCount(), 2u) << status;
    EXPECT_FALSE(_hasUpdatedGameEvents.load()) << status;
  }
}

TEST_F(Uploads, NoReplyTriesTwiceWithAPauseAfterEach) {
  recordOneEventEach();
  server_.dropConnections();
  auto outcome = std::make_shared<Outcome>();
  advanceToMs(10000);
  upload(gameName(), gameUrl(), 0, outcome);
  sim().advance(5.0);
  const std::vector<double> times = requestTimes();
  ASSERT_EQ(times.size(), 2u);
  EXPECT_NEAR(times[0], 10.0005, 1e-9);
  EXPECT_NEAR(times[1], 11.0005, 1e-9);
  EXPECT_EQ(outcome->uploaded, false);
  EXPECT_NEAR(outcome->at, 12.0005, 1e-9) << "the second pause comes before the callback";
  EXPECT_EQ(logsStartingWith("SDK > Failed"),
            std::vector<std::string>(2, "SDK > Failed to upload " + gameName() + " to " + gameUrl()));

  // The worker's pass fares the same, and the flag stays set for the pass after.
  server_.clearRequests();
  sim().advance(20.0);
  EXPECT_EQ(server_.requestCount(), 4u);
  EXPECT_TRUE(_hasUpdatedGameEvents.load());
  EXPECT_TRUE(_hasUpdatedInputEvents.load());
}

TEST_F(Uploads, RetrySendsWhatTheFileHoldsAfterThePause) {
  recordOneEventEach();
  server_.dropConnections(1);
  auto outcome = std::make_shared<Outcome>();
  upload(gameName(), gameUrl(), 0, outcome);
  sim().advance(0.5);
  sdk().emitGameEvent("during", "pause");
  sim().advance(1.0);
  EXPECT_EQ(outcome->uploaded, true);
  EXPECT_EQ(server_.latestBody("/g.evt"), readFile(gameEventPath()));
  EXPECT_NE(server_.latestBody("/g.evt")->find("\"during\""), std::string::npos);
}

TEST_F(Uploads, UnreadableOrUnsendableFilesFailWithoutAnyRequest) {
  recordOneEventEach();
  // Attempt number 2 ends at once, reading nothing.
  auto outcome = std::make_shared<Outcome>();
  upload("missing.evt", gameUrl(), 2, outcome);
  EXPECT_EQ(outcome->uploaded, false);
  EXPECT_TRUE(sim().logLines().empty());

  // A URL that cannot be parsed fails like a request without a reply.
  outcome = std::make_shared<Outcome>();
  upload(gameName(), "not a url", 0, outcome);
  sim().advance(3.0);
  EXPECT_EQ(outcome->uploaded, false);
  EXPECT_EQ(logsStartingWith("SDK > Failed"),
            std::vector<std::string>(2, "SDK > Failed to upload " + gameName() + " to not a url"));

  // A vanished file: one read failure a pass, for as long as the flag is set.
  sim().clearLog();
  std::filesystem::remove(gameEventPath());
  advanceToMs(60000);
  EXPECT_EQ(logsStartingWith("SDK > Failed"),
            std::vector<std::string>(2, "SDK > Failed to read from " + gameEventPath()));
  for (const auto& request : server_.requests()) EXPECT_EQ(request.path, "/i.evt");
  EXPECT_TRUE(_hasUpdatedGameEvents.load());
}

TEST_F(Uploads, WorkerSkipsALogWithoutUrlAndFollowsANewSetUp) {
  recordOneEventEach();
  initialise(server_.url("/g2.evt"), "", originMs());
  _hasUpdatedInputEvents = true;  // the input log has no URL now: its flag does not matter
  sdk().emitGameEvent("after", "set-up");
  advanceToMs(30000);
  const auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 1u) << "one worker, one request a changed file";
  EXPECT_EQ(requests[0].path, "/g2.evt");
  EXPECT_EQ(requests[0].body, readFile(gameEventPath()));
  EXPECT_TRUE(logsStartingWith("SDK > Failed").empty());
}

}  // namespace
}  // namespace tavrel::testing
