// The bytes of the two event files, the guards in front of them, and a recording set up again.

#include "recording/event_file_reader.hpp"
#include "recording/event_format.hpp"
#include "recording_fixture.hpp"

#include <filesystem>
#include <fstream>

namespace tavrel::testing {
namespace {

namespace fs = std::filesystem;
using Events = std::vector<std::int32_t>;

constexpr const char* kGameUrl = "https://127.0.0.1:9/g.evt";
constexpr const char* kInputUrl = "https://127.0.0.1:9/i.evt";

using EventFiles = RecordingTest;

TEST_F(EventFiles, GameEventFileOfTheWorkedExampleIs47Bytes) {
  initialise(kGameUrl, std::nullopt, originMs());
  advanceToMs(4250);
  sdk().emitGameEvent("jump", "level-2");
  const std::string file = readFile(gameEventPath());
  EXPECT_EQ(file, std::string("GEV\n1\n{\"a\": \"jump\", \"e\": \"level-2\", \"t\": 4250}\n"));
  EXPECT_EQ(file.size(), 47u);
  EXPECT_TRUE(_hasUpdatedGameEvents.load());
  EXPECT_FALSE(_firstWriteToGameEventFile.load());

  advanceToMs(5000);
  sdk().emitGameEvent("land", "level-2");
  EXPECT_EQ(readFile(gameEventPath()), file + "{\"a\": \"land\", \"e\": \"level-2\", \"t\": 5000}\n");
}

TEST_F(EventFiles, InputEventFileOfTheWorkedExampleIs56Bytes) {
  initialise(std::nullopt, kInputUrl, originMs() - 12000);
  advanceToMs(345);
  sdk().emitInputEvent({6, 0, 6, 3, 16887, 15549, 0});
  advanceToMs(400);
  sdk().emitInputEvent({3, 0, 7, 3});
  EXPECT_EQ(hex(readFile(inputEventPath())),
            "49 4E 50 02 39 30 00 00 07 00 00 00 00 00 00 00 06 00 00 00 03 00 00 00 F7 41 00 00 BD 3C 00 00 "
            "00 00 00 00 70 30 00 00 04 00 00 00 00 00 00 00 07 00 00 00 03 00 00 00");
  EXPECT_TRUE(_hasUpdatedInputEvents.load());
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
      {0, eventTime(origin, 0)},
  };
  for (const auto& c : cases) {
    initialise(kGameUrl, kInputUrl, c.start);
    sdk().emitGameEvent("a", "e");
    sdk().emitInputEvent({1, 42});
    const std::string line = readFile(gameEventPath()).substr(kGameEventHeader.size());
    EXPECT_EQ(line, "{\"a\": \"a\", \"e\": \"e\", \"t\": " + std::to_string(c.time) + "}\n") << c.start;
    const std::string input = readFile(inputEventPath());
    ASSERT_EQ(input.size(), 16u);
    EXPECT_EQ(readWord(input, 4), c.time) << c.start;
  }
  EXPECT_EQ(eventTime(origin, 0), static_cast<std::int32_t>(origin & 0xFFFFFFFF));
}

TEST_F(EventFiles, EachLogRecordsOnlyWithUrlNameAndStart) {
  const struct {
    std::optional<std::string> gameUrl, inputUrl;
    std::int64_t start;
    bool game, input;
  } cases[] = {
      {std::nullopt, std::nullopt, 0, false, false}, {kGameUrl, std::nullopt, 0, true, false},
      {"", kInputUrl, 0, false, true},               {kGameUrl, kInputUrl, -1, false, false},
      {kGameUrl, kInputUrl, 0, true, true},
  };
  for (const auto& c : cases) {
    resetSessionGlobals();
    sim().clearLog();
    initialise(c.gameUrl, c.inputUrl, c.start);
    const bool anyUrl = (c.gameUrl && !c.gameUrl->empty()) || (c.inputUrl && !c.inputUrl->empty());
    EXPECT_EQ(_startedEventThread.load(), anyUrl);
    sdk().emitGameEvent("a", "e");
    sdk().emitInputEvent({1, 2});
    std::vector<std::string> expectedLog;
    if (!c.game) expectedLog.push_back("SDK > gameEvents not configured");
    if (!c.input) expectedLog.push_back("SDK > inputEvents not configured");
    EXPECT_EQ(sim().logLines(), expectedLog);
    EXPECT_EQ(_hasUpdatedGameEvents.load(), c.game);
    EXPECT_EQ(_hasUpdatedInputEvents.load(), c.input);
    EXPECT_EQ(_eventsSinceLastUpdate.load(), c.input ? 1 : 0);
  }
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(documents())) files += entry.path().extension() == ".evt";
  EXPECT_EQ(files, 4u);
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
      {"a\xFF" "b\xC3", "a\\ufffdb\\ufffd", "a\xEF\xBF\xBD" "b\xEF\xBF\xBD"},
      {"\xED\xA0\x80", "\\ufffd\\ufffd\\ufffd", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {std::nullopt, "(null)", "(null)"},
      {"plain ascii <>&", "plain ascii <>&", "plain ascii <>&"},
  };
  std::string expected(kGameEventHeader);
  for (const auto& c : cases) {
    sdk().emitGameEvent(c.text, "n");
    expected += "{\"a\": \"" + c.written + "\", \"e\": \"n\", \"t\": 0}\n";
  }
  const std::string file = readFile(gameEventPath());
  EXPECT_EQ(file, expected);
  const EventFileContents contents = readEventFile(file);
  ASSERT_TRUE(contents.wellFormed());
  for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(contents.gameEvents[i].a, cases[i].readBack);
}

TEST_F(EventFiles, FirstEventReplacesAFileLeftAtItsPath) {
  initialise(kGameUrl, std::nullopt, originMs());
  std::ofstream(gameEventPath()) << "left over from somewhere else\n";
  sdk().emitGameEvent("a", "e");
  EXPECT_EQ(readFile(gameEventPath()), std::string(kGameEventHeader) + "{\"a\": \"a\", \"e\": \"e\", \"t\": 0}\n");
}

TEST_F(EventFiles, RecordingSetUpAgainStartsNewFiles) {
  initialise(kGameUrl, kInputUrl, originMs());
  sdk().emitGameEvent("first", "run");
  sdk().emitInputEvent({1, 1});
  const std::string firstGame = gameEventPath(), firstInput = inputEventPath();
  const std::string firstGameBytes = readFile(firstGame), firstInputBytes = readFile(firstInput);

  advanceToMs(2000);
  initialise(kGameUrl, kInputUrl, originMs() + 1000);
  EXPECT_NE(gameEventPath(), firstGame);
  EXPECT_NE(inputEventPath(), firstInput);
  EXPECT_FALSE(_hasUpdatedGameEvents.load()) << "the new file has nothing to upload yet";
  sdk().emitGameEvent("second", "run");
  sdk().emitInputEvent({1, 2});

  EXPECT_EQ(readFile(gameEventPath()), std::string(kGameEventHeader) + "{\"a\": \"second\", \"e\": \"run\", \"t\": 1000}\n");
  EXPECT_EQ(hex(readFile(inputEventPath())), "49 4E 50 02 E8 03 00 00 02 00 00 00 02 00 00 00");
  EXPECT_EQ(readFile(firstGame), firstGameBytes);
  EXPECT_EQ(readFile(firstInput), firstInputBytes);
  EXPECT_TRUE(logsStartingWith("SDK > Failed").empty());

  // A later set-up without a game event URL switches that log off and keeps its old name.
  const std::string secondGame = gameEventPath();
  initialise("", kInputUrl, originMs());
  EXPECT_EQ(gameEventPath(), secondGame);
  sdk().emitGameEvent("third", "run");
  EXPECT_EQ(logsStartingWith("SDK > gameEvents"), std::vector<std::string>{"SDK > gameEvents not configured"});
}

}  // namespace
}  // namespace tavrel::testing
