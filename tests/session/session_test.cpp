#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>

namespace tavrel {
namespace {

using testing::SimulatedSession;

class Session : public SimulatedSession {};

TEST_F(Session, TokenLengthRuleAndUserId) {
  EXPECT_EQ(TavrelSDK::getUserId(), "no-user-id");
  const std::string token48 = std::string(24, 't') + "0123456789ABCDEFGHIJKLMN";
  sdk().setAuthToken(token48);
  EXPECT_EQ(_authToken.get(), token48);
  EXPECT_EQ(TavrelSDK::getUserId(), "0123456789ABCDEFGHIJKLMN");

  const std::string token60 = token48 + "tail-of-twelv";
  sdk().setAuthToken(token60);
  EXPECT_EQ(_authToken.get(), token60);
  EXPECT_EQ(TavrelSDK::getUserId(), "0123456789ABCDEFGHIJKLMN");

  sdk().setAuthToken(token48.substr(0, 47));  // a refused token also drops the earlier one
  EXPECT_FALSE(_authToken.load());
  EXPECT_EQ(TavrelSDK::getUserId(), "no-user-id");

  sdk().setAuthToken(token48);
  sdk().setAuthToken(std::nullopt);
  EXPECT_FALSE(_authToken.load());
  EXPECT_EQ(TavrelSDK::getUserId(), "no-user-id");
}

TEST_F(Session, TokenLengthCountsUtf16Units) {
  // 24 two-unit emoji make 48 units: a token, whose user id is the last 12 emoji.
  std::string emoji;
  for (int i = 0; i < 24; ++i) emoji += "\xF0\x9F\x98\x80";
  sdk().setAuthToken(emoji);
  ASSERT_TRUE(_authToken.load());
  EXPECT_EQ(TavrelSDK::getUserId(), emoji.substr(0, 12 * 4));
}

TEST_F(Session, TimestampReadsThePlatformClock) {
  ::setenv("TZ", "UTC0", 1);
  ::tzset();
  EXPECT_EQ(TavrelSDK::getTimestamp(), "2026:03:09T13:05:33Z");
  sim().advance(61.0);
  EXPECT_EQ(TavrelSDK::getTimestamp(), "2026:03:09T13:06:34Z");
}

TEST(VersionSymbols, AreExportedWithCLinkageAndExactBytes) {
  void* number = ::dlsym(RTLD_DEFAULT, "tavrel_sdkVersionNumber");
  void* text = ::dlsym(RTLD_DEFAULT, "tavrel_sdkVersionString");
  ASSERT_NE(number, nullptr);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(*static_cast<const double*>(number), 1.0);
  const char expected[] = "@(#)PROGRAM:tavrel_sdk  PROJECT:tavrel-sdk-1\n";
  EXPECT_EQ(std::memcmp(text, expected, sizeof expected), 0);
  EXPECT_EQ(std::strlen(reinterpret_cast<const char*>(tavrel_sdkVersionString)), sizeof expected - 1);
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

}  // namespace
}  // namespace tavrel
