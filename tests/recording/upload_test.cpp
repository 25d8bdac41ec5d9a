// The upload worker against a real HTTPS server on 127.0.0.1, in virtual time.

#include "endpoint/https_server.hpp"
#include "recording_fixture.hpp"

#include <filesystem>
#include <mutex>

namespace tavrel::testing {
namespace {

using endpoint::RecordedRequest;

class Uploads : public RecordingTest {
 protected:
  void SetUp() override {
    RecordingTest::SetUp();
    server_.start();
    sim().setTrustedCertificatesFile(server_.caFile());
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

  struct Outcome {
    std::optional<bool> uploaded;
    double at = -1;  // virtual time of the callback
  };
  std::shared_ptr<Outcome> upload(const std::optional<std::string>& name, const std::string& url,
                                  std::int32_t attempt) {
    auto outcome = std::make_shared<Outcome>();
    sdk().uploadFileToUrl(name, url, attempt, [this, outcome](bool uploaded) {
      outcome->uploaded = uploaded;
      outcome->at = sim().elapsed();
    });
    return outcome;
  }

  std::vector<std::int64_t> requestTimes() {
    std::lock_guard lock(mutex_);
    return requestTimes_;
  }

  std::mutex mutex_;
  std::vector<std::int64_t> requestTimes_;  // whole virtual milliseconds of each request's arrival
  endpoint::HttpsServer server_{[this] {
    endpoint::HttpsServer::Options options;
    options.onRecord = [this](const RecordedRequest&) {
      std::lock_guard lock(mutex_);
      requestTimes_.push_back(static_cast<std::int64_t>(sim().elapsed() * 1000));
    };
    return options;
  }()};
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
  EXPECT_EQ((requests[0].path == "/g.evt" ? requests[0] : requests[1]).target, "/g.evt?sig=a%2Bb&exp=9");
  EXPECT_EQ(logsStartingWith("SDK > "),
            (std::vector<std::string>{"SDK > Uploading " + gameName() + " to " + gameUrl(),
                                      "SDK > Uploading " + _inputEventFilename.get().value() + " to " + inputUrl()}));
  EXPECT_FALSE(_hasUpdatedGameEvents.load());
  EXPECT_FALSE(_hasUpdatedInputEvents.load());
  advanceToMs(60000);
  EXPECT_EQ(server_.requestCount(), 2u) << "clean files are not sent again";
}

TEST_F(Uploads, WorkerSkipsALogWithoutUrlAndFollowsANewSetUp) {
  recordOneEventEach();
  initialise(server_.url("/g2.evt"), "", originMs());
  _hasUpdatedInputEvents = true;  // the input log has no URL now: its flag does not matter
  sdk().emitGameEvent("after", "set-up");
  advanceToMs(30000);
  ASSERT_EQ(server_.requestCount(), 1u) << "one worker, one request a changed file";
  EXPECT_EQ(server_.latestBody("/g2.evt"), readFile(gameEventPath()));
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
              std::vector<std::string>{"SDK > Failed with code " + std::to_string(status) + " to upload " + gameName() +
                                       " to " + gameUrl()});
    EXPECT_TRUE(_hasUpdatedGameEvents.load()) << status;
    sim().advance(30.0);
    EXPECT_FALSE(_hasUpdatedGameEvents.load()) << status;
  }
}

TEST_F(Uploads, NoReplyOrNoUrlFailsTwiceWithAPauseAfterEach) {
  recordOneEventEach();
  server_.dropConnections();
  advanceToMs(10000);
  for (const std::string& url : {gameUrl(), std::string("not a url")}) {
    sim().clearLog();
    const double start = sim().elapsed();
    const auto outcome = upload(gameName(), url, 0);
    sim().advance(5.0);
    EXPECT_EQ(outcome->uploaded, false) << url;
    EXPECT_NEAR(outcome->at, start + 2.0, 1e-9) << "the second pause comes before the callback";
    EXPECT_EQ(logsStartingWith("SDK > Failed"),
              std::vector<std::string>(2, "SDK > Failed to upload " + gameName() + " to " + url));
  }
  EXPECT_EQ(requestTimes(), (std::vector<std::int64_t>{10000, 11000}));

  // The worker's pass fares the same, and the flags stay set for the pass after.
  server_.clearRequests();
  advanceToMs(40000);
  EXPECT_EQ(server_.requestCount(), 4u);
  EXPECT_TRUE(_hasUpdatedGameEvents.load());
  EXPECT_TRUE(_hasUpdatedInputEvents.load());
}

TEST_F(Uploads, RetrySendsWhatTheFileHoldsAfterThePause) {
  recordOneEventEach();
  server_.dropConnections(1);
  const auto outcome = upload(gameName(), gameUrl(), 0);
  sim().advance(0.5);
  sdk().emitGameEvent("during", "pause");
  sim().advance(1.0);
  EXPECT_EQ(outcome->uploaded, true);
  EXPECT_EQ(server_.latestBody("/g.evt"), readFile(gameEventPath()));
}

TEST_F(Uploads, NoAttemptAfterTheSecondAndAVanishedFileFailEveryPassWithoutARequest) {
  recordOneEventEach();
  EXPECT_EQ(upload(gameName(), gameUrl(), 2)->uploaded, false);
  EXPECT_TRUE(sim().logLines().empty());

  std::filesystem::remove(gameEventPath());
  advanceToMs(60000);
  EXPECT_EQ(logsStartingWith("SDK > Failed"),
            std::vector<std::string>(2, "SDK > Failed to read from " + gameEventPath()));
  for (const auto& request : server_.requests()) EXPECT_EQ(request.path, "/i.evt");
  EXPECT_TRUE(_hasUpdatedGameEvents.load());
}

}  // namespace
}  // namespace tavrel::testing
