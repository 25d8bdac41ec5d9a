#include "endpoint/https_server.hpp"
#include "session/launch_url.hpp"
#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include <gtest/gtest.h>

namespace tavrel {
namespace {

using Items = std::map<std::string, std::string>;
using testing::SimulatedSession;

const std::string kToken = "TOKENPREFIX-0123456789ab" "USERID-0123456789abcdefg";  // 48

TEST(LaunchUrl, EveryValueIsDecodedTwiceAndItsPlusReencoded) {
  const std::string url = "mygame://validate?launchToken=" + kToken +
                          "&gameEventUrl=%252Fg.evt%253Fsig%253Da%252Bb%2526exp%253D9"
                          "&inputEventUrl=%2Fi.evt%3Fsig%3Dc%26exp%3D9&recordingStartedAt=500";
  const auto reading = readLaunchUrl(url);
  ASSERT_EQ(reading.outcome, LaunchUrlReading::Outcome::Parsed);
  EXPECT_EQ(reading.items, (Items{{"launchToken", kToken},
                                  {"gameEventUrl", "/g.evt?sig=a%2Bb&exp=9"},
                                  {"inputEventUrl", "/i.evt?sig=c&exp=9"},
                                  {"recordingStartedAt", "500"}}));
  const std::pair<const char*, const char*> table[] = {
      {"a%2Bb", "a%2Bb"}, {"a+b", "a%2Bb"}, {"a%252Fb", "a/b"}, {"a%25252Fb", "a%2Fb"}};
  for (const auto& [inUrl, expected] : table) {
    EXPECT_EQ(readLaunchUrl(std::string("g://validate?launchToken=") + inUrl).items.at("launchToken"), expected)
        << inUrl;
  }
  EXPECT_TRUE(TavrelSDK::parseQueryString(std::nullopt).empty());
}

TEST(LaunchUrl, ItemsSplitOnlyWhereTheRulesSay) {
  const auto items = [](const std::string& query) { return readLaunchUrl("g://validate?" + query).items; };
  // Only "&" before the three known names separates; launchToken elsewhere stays in a value.
  EXPECT_EQ(items("launchToken=t&x=1&gameEventUrl=u"), (Items{{"launchToken", "t&x=1"}, {"gameEventUrl", "u"}}));
  EXPECT_EQ(items("gameEventUrl=u&launchToken=t"), (Items{{"gameEventUrl", "u&launchToken=t"}}));
  // %26 before a name is no separator; %7C%7C becomes "||" at the first decoding and splits.
  EXPECT_EQ(items("launchToken=t%26gameEventUrl=u"), (Items{{"launchToken", "t&gameEventUrl=u"}}));
  EXPECT_EQ(items("launchToken=t%7C%7Cextra=1"), (Items{{"launchToken", "t"}, {"extra", "1"}}));
  EXPECT_EQ(items("launchToken=t%257C%257Cextra=1"), (Items{{"launchToken", "t||extra=1"}}));
  // The first "=" splits; a later item replaces an earlier one; a fragment stays in the value.
  EXPECT_EQ(items("a=b=c"), (Items{{"a", "b=c"}}));
  EXPECT_EQ(items("launchToken=1&gameEventUrl=x&gameEventUrl=y"), (Items{{"launchToken", "1"}, {"gameEventUrl", "y"}}));
  EXPECT_EQ(items("launchToken=t#frag"), (Items{{"launchToken", "t#frag"}}));
  EXPECT_EQ(items("launchToken="), (Items{{"launchToken", ""}}));
}

TEST(LaunchUrl, OutsideTheFormatIsRecognisedNotFatal) {
  using Outcome = LaunchUrlReading::Outcome;
  // A failed first decoding is inside the format: an empty dictionary.
  const std::pair<const char*, Outcome> cases[] = {
      {"g://Validate?launchToken=t", Outcome::NotForUs}, {"g://other?launchToken=t", Outcome::NotForUs},
      {"not a url", Outcome::NotForUs},                  {"g://validate?a b", Outcome::NotForUs},
      {"g://validate", Outcome::Malformed},
      {"g://validate?", Outcome::Malformed},             {"g://validate?launchToken=t&gameEventUrl", Outcome::Malformed},
      {"g://validate?launchToken=%25zz", Outcome::Malformed}, {"g://validate?launchToken=%zz", Outcome::Parsed},
  };
  for (const auto& [url, outcome] : cases) {
    const auto reading = readLaunchUrl(url);
    EXPECT_EQ(std::pair(reading.outcome, reading.items.size()), std::pair(outcome, std::size_t{0})) << url;
  }
}

TEST(LaunchUrl, ComposedUrlsReadBackExactly) {
  LaunchUrlValues values{.scheme = "my-game.v2",
                         .launchToken = kToken + "&gameEventUrl=x||y%41=z",
                         .gameEventUrl = "https://h/g.evt?sig=a%2Fb&exp=9#f",
                         .inputEventUrl = "https://h/\xC3\xA9|i.evt?x=&inputEventUrl=1",
                         .recordingStartedAt = -5};
  const auto reading = readLaunchUrl(composeLaunchUrl(values));
  ASSERT_EQ(reading.outcome, LaunchUrlReading::Outcome::Parsed);
  EXPECT_EQ(reading.items, (Items{{"launchToken", values.launchToken},
                                  {"gameEventUrl", *values.gameEventUrl},
                                  {"inputEventUrl", *values.inputEventUrl},
                                  {"recordingStartedAt", "-5"}}));
  EXPECT_EQ(composeLaunchUrl({.scheme = "g", .launchToken = kToken}), "g://validate?launchToken=" + kToken);

  for (const LaunchUrlValues& refused : {LaunchUrlValues{.scheme = "g", .launchToken = kToken.substr(0, 47)},
                                          {.scheme = "g", .launchToken = kToken + "+"},
                                          {.scheme = "g", .launchToken = kToken, .gameEventUrl = "https://h/a+b"},
                                          {.scheme = "1g", .launchToken = kToken}, {.scheme = "", .launchToken = kToken}}) {
    EXPECT_THROW(composeLaunchUrl(refused), std::invalid_argument) << refused.scheme;
  }
}

class ProcessUrlRequest : public SimulatedSession {};

TEST_F(ProcessUrlRequest, HandsOverRecordingThenTokenThenValidation) {
  sdk().processUrlRequest("g://validate?launchToken=" + kToken +
                          "&inputEventUrl=https%3A%2F%2Fh%2Fi&recordingStartedAt=1773061533000");
  EXPECT_EQ(std::tuple(_gameEventUrl.get(), _inputEventUrl.get(), _recordingStartedAt.load(), _authToken.get(),
                       TavrelSDK::getUserId()),
            std::tuple(std::nullopt, "https://h/i", 1773061533000, kToken, "USERID-0123456789abcdefg"));
  EXPECT_FALSE(_validationCallbackSet.load());  // no validate before the game asked for one
}

TEST_F(ProcessUrlRequest, TokenOnlyOrForeignOrMalformedUrlsTouchNoRecording) {
  sdk().processUrlRequest("g://validate?launchToken=" + kToken);
  EXPECT_EQ(_recordingStartedAt.load(), -1);
  EXPECT_EQ(_authToken.get(), kToken);

  for (const char* ignored :
       {"g://VALIDATE?launchToken=short", "g://validate?launchToken=x&gameEventUrl", "g://validate?launchToken=%zz"}) {
    sdk().processUrlRequest(ignored);
    EXPECT_EQ(_authToken.get(), kToken) << ignored;
  }
  // No number in recordingStartedAt is 0; empty URLs set nothing up.
  sdk().processUrlRequest("g://validate?gameEventUrl=&inputEventUrl=");
  EXPECT_EQ(_recordingStartedAt.load(), -1);
  sdk().processUrlRequest("g://validate?gameEventUrl=u&recordingStartedAt=soon");
  EXPECT_EQ(_recordingStartedAt.load(), 0);
}

// The tool reads and writes them the same way.
using LaunchUrlTool = testing::ToolTest;

TEST_F(LaunchUrlTool, ParsesComposesAndRefusesWithStatusTwo) {
  const std::string composed =
      testing::runTool({"launch-url", "compose", "--scheme", "mygame", "--token", kToken, "--game-event-url",
                        "https://h/g.evt?sig=a%2Fb&exp=9", "--recording-started-at", "1773061533000"})
          .out;
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string out, err = {};
  } cases[] = {
      {{"parse", composed.substr(0, composed.size() - 1)},
       0, R"({"gameEventUrl":"https://h/g.evt?sig=a%2Fb&exp=9","launchToken":")" + kToken +
              R"(","recordingStartedAt":"1773061533000"})" "\n"},
      {{"parse", "mygame://validated?launchToken=x"}, 0, "null\n"},
      {{"parse", "mygame://validate?launchToken=%zz"}, 0, "{}\n"},
      {{"parse", "mygame://validate"}, 2, "", "no query"},
      {{"parse", "mygame://validate?launchToken"}, 2, "", "has no \"=\""},
      {{"parse", "mygame://validate?launchToken=%25zz"}, 2, "", "opens no escape"},
      {{"compose", "--scheme", "mygame", "--token", kToken.substr(1)}, 2, "", "47 characters"},
      {{"compose", "--token", kToken}, 2, "", "--scheme"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments{"launch-url"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    const testing::ToolRun run = testing::runTool(arguments);
    EXPECT_EQ(std::tie(run.status, run.out), std::tie(c.status, c.out)) << c.arguments[1];
    EXPECT_NE(run.err.find(c.err), std::string::npos) << c.arguments[1] << ": " << run.err;
  }
  EXPECT_EQ(testing::runTool({"--version"}).out, "tavrel 1.0.0\n");
}

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
