#include "endpoint/https_server.hpp"
#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include <gtest/gtest.h>

namespace tavrel {
namespace {

using testing::SimulatedSession;

class Session : public SimulatedSession {};

// In order: a refused token also drops the one before it; 24 two-unit emoji are 48 UTF-16 units.
TEST_F(Session, TokenLengthRuleAndUserIdInUtf16Units) {
  EXPECT_EQ(TavrelSDK::getUserId(), "no-user-id");
  const std::string token48 = std::string(24, 't') + "0123456789ABCDEFGHIJKLMN";
  std::string emoji;
  for (int i = 0; i < 24; ++i) emoji += "\xF0\x9F\x98\x80";
  const std::pair<std::optional<std::string>, std::string> cases[] = {
      {token48, "0123456789ABCDEFGHIJKLMN"}, {token48 + "tail-of-twelv", "0123456789ABCDEFGHIJKLMN"},
      {token48.substr(0, 47), "no-user-id"}, {token48, "0123456789ABCDEFGHIJKLMN"},
      {std::nullopt, "no-user-id"},          {emoji, emoji.substr(0, 12 * 4)},
  };
  for (const auto& [token, userId] : cases) {
    sdk().setAuthToken(token);
    EXPECT_EQ(_authToken.get(), userId == "no-user-id" ? std::nullopt : token) << userId;
    EXPECT_EQ(TavrelSDK::getUserId(), userId);
  }
}

TEST_F(Session, TimestampReadsThePlatformClock) {
  ::setenv("TZ", "UTC0", 1);
  ::tzset();
  EXPECT_EQ(TavrelSDK::getTimestamp(), "2026:03:09T13:05:33Z");
  sim().advance(61.0);
  EXPECT_EQ(TavrelSDK::getTimestamp(), "2026:03:09T13:06:34Z");
}

// No fixture: its reset would hide a wrong value at load.
TEST(SessionGlobals, StartWithTheirValuesAtLoad) {
  EXPECT_EQ(TavrelSDK::getUserId(), "no-user-id");
  EXPECT_EQ(std::tuple(_firstWriteToGameEventFile.load(), _firstWriteToInputEventFile.load(),
                       _validationCallbackSet.load(), _startedEventThread.load(), _hasUpdatedGameEvents.load(),
                       _hasUpdatedInputEvents.load()),
            std::tuple(true, true, false, false, false, false));
  EXPECT_EQ(std::tuple(_recordingStartedAt.load(), _lastUpdated.load(), _eventsSinceLastUpdate.load()),
            std::tuple(-1, 0, 0));
  EXPECT_FALSE(_authToken.load() || _gameEventFilename.load() || _gameEventUrl.load() || _inputEventFilename.load() ||
               _inputEventUrl.load() || _validationCallback.get());
}

// A game quits while requests are held by a silent service, the overlay's timer due, the upload thread asleep.
TEST(Quitting, EndsWithTheStatusAskedForWhateverIsInFlight) {
  endpoint::HttpsServer silent({.threads = 64});  // every held request holds a worker
  silent.delayReplies(std::chrono::hours(1));
  silent.start();
  testing::TemporaryDirectory documents;

  const std::pair<std::string, int> ways[] = {{"return", 0}, {"exit", 0}, {"exit-thread", 0}, {"terminate", 255}};
  // At once, as the requests go out, and once they wait at the server.
  for (const char* wait : {"0", "150", "600"}) {
    for (const auto& [how, status] : ways) {
      const testing::ToolRun run = testing::runProgram(
          QUITTING_GAME, {silent.baseUrl(), silent.caFile(), documents.path(), wait, how}, {}, std::chrono::seconds(20));
      EXPECT_EQ(run.status, status) << how << " after " << wait << " ms\n" << run.err;
    }
  }
}

}  // namespace
}  // namespace tavrel
