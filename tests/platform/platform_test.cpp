#include <tavrel_sdk/platform.hpp>

#include "platform/bundle.hpp"
#include "platform/date_format.hpp"
#include "platform/files.hpp"
#include "platform/json.hpp"
#include "platform/notification_center.hpp"
#include "platform/strings.hpp"
#include "platform/uuid.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <regex>
#include <set>
#include <thread>
#include <vector>

namespace tavrel {
namespace {

TEST(Timestamp, UsesColonsInTheDateAndTheZoneOffsetOrZ) {
  const double instant = 1773065133.75;  // 2026-03-09T14:05:33.75Z
  const std::pair<const char*, const char*> cases[] = {
      {"CET-1", "2026:03:09T15:05:33+01:00"},
      {"IST-5:30", "2026:03:09T19:35:33+05:30"},
      {"NST3:30", "2026:03:09T10:35:33-03:30"},
      {"<-10>10", "2026:03:09T04:05:33-10:00"},
      {"UTC0", "2026:03:09T14:05:33Z"},
  };
  // The zone is left at UTC for the tests after: none reads it but this one and the session's.
  for (const auto& [tz, expected] : cases) {
    ::setenv("TZ", tz, 1);
    ::tzset();
    EXPECT_EQ(localTimestamp(instant), expected) << tz;
  }
  EXPECT_EQ(localTimestamp(-0.5), "1969:12:31T23:59:59Z");  // fractions truncate toward the past
}

TEST(Uuid, IsThirtySixUpperCaseCharactersAndFresh) {
  const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = makeUuidString();
    EXPECT_TRUE(std::regex_match(uuid, shape)) << uuid;
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(Files, CreateReplacesAppendNeverCreatesAndModesAreOwnerOnly) {
  testing::TemporaryDirectory dir;
  // The documents directory is made on first use, with its parents.
  auto sim = SimPlatform::create();
  sim->setDocumentsDirectory(dir.path() + "/a/b/Documents");
  EXPECT_EQ(sim->documentsDirectory(), dir.path() + "/a/b/Documents");
  struct stat st {};
  ASSERT_EQ(::stat((dir.path() + "/a/b/Documents").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFDIR | 0700u);

  const std::string path = appendingPathComponent(dir.path(), "x.evt");
  EXPECT_FALSE(FileHandle::forWritingAtPath(path));  // a missing file is not created
  ASSERT_TRUE(createFileAtPath(path, "old contents"));
  ASSERT_TRUE(createFileAtPath(path, "GEV\n1\n"));
  {
    auto handle = FileHandle::forWritingAtPath(path);
    ASSERT_TRUE(handle);
    ASSERT_TRUE(handle->seekToEndOfFile());
    ASSERT_TRUE(handle->writeData("line\n"));
  }
  const ReadResult read = readWholeFile(path);
  EXPECT_EQ(std::tuple(read.error, read.data), std::tuple(std::nullopt, "GEV\n1\nline\n"));
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  EXPECT_TRUE(readWholeFile(appendingPathComponent(dir.path(), "gone.evt")).error);
  EXPECT_FALSE(createFileAtPath(dir.path() + "/no/such/dir/x.evt", "x"));
}

TEST(PercentDecoding, DecodesEscapesAndRejectsWhatThePlatformRejects) {
  struct Case {
    const char* input;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"a%252Bb", "a%2Bb"},   {"a%2Bb", "a+b"},         {"a+b", "a+b"},  // "+" is never a blank
      {"%2f%2F%2a", "//*"},  {"", ""},                 {"%C3%A9", "\xC3\xA9"},
      {"%20%40", " @"},       {"%F4%8F%BF%BF", "\xF4\x8F\xBF\xBF"},  // U+10FFFF, the last code point
      {"%F4%90%80%80", std::nullopt}, {"%F8%90%80%80", std::nullopt},  // beyond it; no lead byte
      {"%", std::nullopt},    {"%4", std::nullopt},     {"%zz", std::nullopt},
      {"%G1", std::nullopt},  {"%1G", std::nullopt},
      {"a%2", std::nullopt},  {"%C3", std::nullopt},    // a lone lead byte is not UTF-8
      {"%FF", std::nullopt},  {"%ED%A0%80", std::nullopt}, {"%ED%BF%BF", std::nullopt},  // surrogates are not UTF-8
  };
  for (const auto& c : cases) {
    EXPECT_EQ(removingPercentEncoding(c.input), c.expected) << c.input;
  }
}

TEST(Utf16, CountsAndCutsInUtf16Units) {
  EXPECT_EQ(utf16Length("abc"), 3u);
  EXPECT_EQ(utf16Length("\xC3\xA9"), 1u);          // é
  EXPECT_EQ(utf16Length("\xE2\x82\xAC"), 1u);      // €
  EXPECT_EQ(utf16Length("\xF0\x9F\x98\x80"), 2u);  // an emoji is a surrogate pair
  EXPECT_EQ(utf16Substring("a\xF0\x9F\x98\x80" "bc", 1, 3), "\xF0\x9F\x98\x80" "b");
  EXPECT_EQ(utf16Substring("a\xF0\x9F\x98\x80" "bc", 2, 2), "\xEF\xBF\xBD" "b");  // half a pair
  EXPECT_EQ(utf16Substring("\xE0\xB8\x81" "b", 1, 1), "b");  // a three-byte character led by E0 is one unit
  EXPECT_EQ(utf16Substring("abcdef", 4, 10), "ef");
  EXPECT_EQ(utf16Substring("abc", 5, 1), "");
}

TEST(LongLongValue, ReadsLikeTheFoundationMethod) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max(), kMin = std::numeric_limits<std::int64_t>::min();
  const std::pair<const char*, std::int64_t> cases[] = {
      {"500", 500}, {"  -42xyz", -42}, {"+7", 7}, {"abc", 0}, {"", 0}, {"- 5", 0},
      {"1773061533000", 1773061533000}, {"9223372036854775807", kMax}, {"9223372036854775808", kMax},
      {"-9223372036854775808", kMin}, {"-99999999999999999999", kMin},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(longLongValue(text), expected) << text;
}

TEST(ReplacingOccurrences, ReplacesLeftToRightWithoutRescanning) {
  EXPECT_EQ(replacingOccurrences("a+b+c", "+", "%2B"), "a%2Bb%2Bc");
  EXPECT_EQ(replacingOccurrences("aaa", "aa", "a"), "aa");
  EXPECT_EQ(replacingOccurrences("x", "", "y"), "x");
}

TEST(BoolValue, ReadsNumbersAndStringsLikeThePlatform) {
  using nlohmann::json;
  const std::pair<json, bool> cases[] = {
      {true, true},   {false, false},   {0, false},       {1, true},    {-3, true},
      {0.5, true},    {"yes", true},    {"True", true},   {"  007", true}, {"0", false},
      {"no", false},  {"", false},      {nullptr, false}, {json::array({1}), false}, {json::object({{"a", 1}}), false},
  };
  for (const auto& [value, expected] : cases) EXPECT_EQ(boolValue(value), expected) << value.dump();
}

TEST(NotificationCenter, DeliversByNameAndObjectBeforeThePostReturns) {
  NotificationCenter center;
  int form = 0, otherForm = 0, controller = 0;
  std::vector<std::string> seen;
  std::thread::id deliveredOn;
  center.addObserver(&controller, "authenticate", &form, [&](const Notification& n) {
    seen.push_back(n.name + ":" + n.userInfo.value("username", "?"));
    deliveredOn = std::this_thread::get_id();
  });
  center.addObserver(&controller, "authenticateFailed", nullptr, [&](const Notification& n) {
    seen.push_back(n.name);
  });
  center.postNotificationName("authenticate", &form, {{"username", "ann"}, {"password", ""}});
  center.postNotificationName("authenticate", &otherForm, nullptr);  // another object: not delivered
  center.postNotificationName("authenticateFailed", &otherForm);     // any object matches null
  EXPECT_EQ(seen, (std::vector<std::string>{"authenticate:ann", "authenticateFailed"}));
  EXPECT_EQ(deliveredOn, std::this_thread::get_id());

  center.removeObserver(&controller, "authenticate");
  center.postNotificationName("authenticate", &form);
  EXPECT_EQ(seen.size(), 2u);
  center.removeObserver(&controller);
  center.postNotificationName("authenticateFailed", nullptr);
  EXPECT_EQ(seen.size(), 2u);
}

class Bundle : public testing::SimulatedSession {};

TEST_F(Bundle, FirstSchemeOfTheFirstUrlType) {
  EXPECT_EQ(firstUrlScheme(), std::nullopt);
  sim().setInfoDictionaryJson(
      R"({"CFBundleURLTypes": [{"CFBundleURLSchemes": ["mygame", "other"]}, {"CFBundleURLSchemes": ["x"]}]})");
  EXPECT_EQ(firstUrlScheme(), "mygame");
  sim().setInfoDictionaryJson(R"({"CFBundleURLTypes": []})");
  EXPECT_EQ(firstUrlScheme(), std::nullopt);
  sim().setInfoDictionaryJson("not json");
  EXPECT_TRUE(objectForInfoDictionaryKey("CFBundleURLTypes").is_null());
}

// The real main loop: order and thread are what matter here, never how long things took.
TEST(LinuxPlatform, MainLoopAndSerialQueuesRunBlocksInOrderAndTimersOnTheLoopThreadTillInvalidated) {
  auto platform = Platform::makeLinux();
  std::vector<int> order, queued;
  std::thread([&] {
    for (int i = 0; i < 50; ++i) platform->dispatchAsyncMain([&order, i] { order.push_back(i); });
  }).join();
  auto queue = platform->makeSerialQueue("order");
  std::atomic<bool> done{false};
  for (int i = 0; i < 100; ++i) queue->async([&queued, i] { queued.push_back(i); });
  queue->async([&] { done = true; });
  std::atomic<int> firings{0};
  std::thread::id firedOn;
  auto timer = platform->scheduledTimer(0.001, [&] {
    ++firings;
    firedOn = std::this_thread::get_id();
  });
  timer.reset();  // the loop keeps its timers, as a run loop does
  while (firings < 3) platform->runMainLoopFor(0.01);
  ASSERT_EQ(order.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
  EXPECT_EQ(firedOn, std::this_thread::get_id());
  while (!done) std::this_thread::yield();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(queued[i], i);

  std::atomic<int> stopped{0};
  auto invalidated = platform->scheduledTimer(0.001, [&] { ++stopped; });
  while (stopped == 0) platform->runMainLoopFor(0.005);
  invalidated->invalidate();
  const int seen = stopped;
  platform->runMainLoopFor(0.02);
  EXPECT_EQ(stopped, seen);
}

}  // namespace
}  // namespace tavrel
