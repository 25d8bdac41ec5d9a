#include "recording/event_file_reader.hpp"
#include "recording_fixture.hpp"

#include <filesystem>
#include <fstream>

namespace tavrel::testing {
namespace {
constexpr const char* kGameUrl = "https://127.0.0.1:9/g.evt";
constexpr const char* kInputUrl = "https://127.0.0.1:9/i.evt";

std::string line(const std::string& a, const std::string& e, std::int64_t t) {
  return "{\"a\": \"" + a + "\", \"e\": \"" + e + "\", \"t\": " + std::to_string(t) + "}\n";
}

using EventFiles = RecordingTest;

TEST_F(EventFiles, WorkedExamplesAreWrittenByteForByte) {
  initialise(kGameUrl, std::nullopt, originMs());
  advanceToMs(4250);
  sdk().emitGameEvent("jump", "level-2");
  EXPECT_EQ(readFile(gameEventPath()), kHeader + kLine);

  initialise(std::nullopt, kInputUrl, originMs() + 4250 - 12345);
  sdk().emitInputEvent({6, 0, 6, 3, 16887, 15549, 0});
  advanceToMs(4305);
  sdk().emitInputEvent({3, 0, 7, 3});
  EXPECT_EQ(readFile(inputEventPath()), kMagic + kMoved + kEnded);
}

TEST_F(EventFiles, TimeWordIsTheLow32BitsOfTheDifference) {
  const std::int64_t origin = originMs();
  const struct {
    std::int64_t start;
    std::int32_t time;
  } cases[] = {
      {origin + 1, -1},
      {origin - 2147483647, 2147483647},
      {origin - 2147483648, -2147483648},
      {origin - 4294967296 - 7, 7},
  };
  for (const auto& c : cases) {
    initialise(kGameUrl, kInputUrl, c.start);
    sdk().emitGameEvent("a", "e");
    sdk().emitInputEvent({1, 42});
    EXPECT_EQ(readFile(gameEventPath()), kHeader + line("a", "e", c.time)) << c.start;
    EXPECT_EQ(readFile(inputEventPath()), kMagic + words({c.time, 2, 42})) << c.start;
  }
}

TEST_F(EventFiles, EachLogRecordsOnlyWithUrlNameAndStart) {
  const struct {
    std::optional<std::string> gameUrl, inputUrl;
    std::int64_t start;
    bool game, input;
  } cases[] = {
      {std::nullopt, std::nullopt, 0, false, false},
      {kGameUrl, std::nullopt, 0, true, false},
      {"", kInputUrl, 0, false, true},
      {kGameUrl, kInputUrl, -1, false, false},
      {kGameUrl, kInputUrl, 0, true, true},
  };
  for (const auto& c : cases) {
    resetSessionGlobals();
    sim().clearLog();
    initialise(c.gameUrl, c.inputUrl, c.start);
    EXPECT_EQ(_startedEventThread.load(), (c.gameUrl && !c.gameUrl->empty()) || (c.inputUrl && !c.inputUrl->empty()));
    sdk().emitGameEvent("a", "e");
    sdk().emitInputEvent({1, 2});
    EXPECT_EQ(std::tuple(logs("SDK > gameEvents not configured").empty(), logs("SDK > inputEvents not configured").empty(),
                         _hasUpdatedGameEvents.load(), _hasUpdatedInputEvents.load()),
              std::tuple(c.game, c.input, c.game, c.input));
  }
}

TEST_F(EventFiles, TextOutsideAsciiIsEscapedAndReadsBack) {
  initialise(kGameUrl, std::nullopt, originMs());
  const struct {
    std::optional<std::string> text;
    std::string written, readBack;
  } cases[] = {
      {"caf\xC3\xA9", "caf\\u00e9", "caf\xC3\xA9"},
      {"\xF0\x9F\x98\x80!", "\\ud83d\\ude00!", "\xF0\x9F\x98\x80!"},
      {"\xE2\x82\xAC", "\\u20ac", "\xE2\x82\xAC"},
      {"a\xFFz\xC3", "a\\ufffdz\\ufffd", "a\xEF\xBF\xBDz\xEF\xBF\xBD"},
      {"\xED\xA0\x80", "\\ufffd\\ufffd\\ufffd", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {std::nullopt, "(null)", "(null)"},
  };
  std::string expected = kHeader;
  for (const auto& c : cases) {
    sdk().emitGameEvent(c.text, "n");
    expected += line(c.written, "n", 0);
  }
  const std::string file = readFile(gameEventPath());
  EXPECT_EQ(file, expected);
  const EventFileContents contents = readEventFile(file);
  ASSERT_TRUE(contents.wellFormed());
  for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(contents.gameEvents[i].a, cases[i].readBack);
}

TEST_F(EventFiles, RecordingSetUpAgainStartsNewFiles) {
  initialise(kGameUrl, kInputUrl, originMs());
  sdk().emitGameEvent("first", "run");
  sdk().emitInputEvent({1, 1});
  const std::string firstGame = gameEventPath(), firstInput = inputEventPath();
  const std::string firstBytes = readFile(firstGame) + readFile(firstInput);

  advanceToMs(2000);
  initialise(kGameUrl, kInputUrl, originMs() + 1000);
  EXPECT_FALSE(_hasUpdatedGameEvents.load()) << "the new file has nothing to upload yet";
  // The first event replaces whatever lies at the new path.
  std::ofstream(gameEventPath()) << "left over from somewhere else\n";
  sdk().emitGameEvent("second", "run");
  sdk().emitInputEvent({1, 2});

  EXPECT_EQ(readFile(gameEventPath()), kHeader + line("second", "run", 1000));
  EXPECT_EQ(readFile(inputEventPath()), kMagic + words({1000, 2, 2}));
  EXPECT_EQ(readFile(firstGame) + readFile(firstInput), firstBytes);
  EXPECT_TRUE(logs().empty());
}

class RateLimit : public RecordingTest {
 protected:
  void SetUp() override {
    RecordingTest::SetUp();
    initialise(std::nullopt, "https://127.0.0.1:9/i.evt", originMs());
  }

  std::vector<bool> emitAt(const std::vector<std::int64_t>& times) {
    std::vector<bool> accepted;
    for (const std::int64_t ms : times) {
      advanceToMs(ms);
      const std::size_t before = fileSize();
      sdk().emitInputEvent({1, static_cast<std::int32_t>(ms)});
      accepted.push_back(fileSize() > before);
    }
    return accepted;
  }

  std::size_t fileSize() {
    return std::filesystem::exists(inputEventPath()) ? std::filesystem::file_size(inputEventPath()) : 0;
  }
};

TEST_F(RateLimit, RunsOfFiveEndExactly1000MillisecondsAfterTheirLastAcceptedEvent) {
  // Every 300 ms: dropped events do not lengthen the run. Then a run whose end falls 999 ms and
  // 1000 ms after its last event.
  EXPECT_EQ(emitAt({0, 300, 600, 900, 1200, 1500, 1800, 2100, 2400, 2700, 2701, 2702, 2703, 3702, 3703}),
            (std::vector<bool>{true, true, true, true, true, false, false, false, true, true, true, true, true, false,
                               true}));
  EXPECT_EQ(std::pair(_eventsSinceLastUpdate.load(), _lastUpdated.load()), std::pair(1, originMs() + 3703));
}

TEST_F(RateLimit, ClockSteppingBackDoesNotEndARun) {
  emitAt({0, 1, 2, 3, 4});
  sim().stepWallClock(-5.0);
  // Three seconds pass, yet the wall clock reads 2004 ms before the last accepted event.
  EXPECT_EQ(emitAt({3000}), std::vector<bool>{false});
  // 1000 ms after it by the wall clock: a new run.
  EXPECT_EQ(emitAt({6004}), std::vector<bool>{true});
  EXPECT_EQ(_lastUpdated.load(), originMs() + 1004);
  // Within a run an accepted event takes the clock's value even when it went back.
  sim().stepWallClock(-5.0);
  EXPECT_EQ(emitAt({6100}), std::vector<bool>{true});
  EXPECT_EQ(std::pair(_eventsSinceLastUpdate.load(), _lastUpdated.load()), std::pair(2, originMs() - 3900));
}

TEST_F(RateLimit, DroppedEmptyOrUnconfiguredEventsTouchNothing) {
  sdk().emitInputEvent({});  // no count word, no record
  EXPECT_EQ(_lastUpdated.load(), 0);
  EXPECT_TRUE(sim().logLines().empty());

  _lastUpdated = originMs();
  _eventsSinceLastUpdate = 5;
  sdk().emitInputEvent({1, 0});
  EXPECT_EQ(std::tuple(std::filesystem::exists(inputEventPath()), _firstWriteToInputEventFile.load(),
                       _hasUpdatedInputEvents.load()),
            std::tuple(false, true, false));

  _recordingStartedAt = -1;
  _eventsSinceLastUpdate = 0;
  sdk().emitInputEvent({1, 0});
  EXPECT_EQ(sim().logLines(), std::vector<std::string>{"SDK > inputEvents not configured"});
  EXPECT_EQ(std::pair(_eventsSinceLastUpdate.load(), _lastUpdated.load()), std::pair(0, originMs()));
}

}  // namespace
}  // namespace tavrel::testing
