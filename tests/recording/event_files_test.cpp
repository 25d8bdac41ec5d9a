#include "recording/event_file_reader.hpp"
#include "recording_fixture.hpp"
#include "support/tool_runner.hpp"

#include <nlohmann/json.hpp>

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

TEST(EventFileReader, ReadsWellFormedFilesAndReportsWhereAFileIsDamaged) {
  for (const std::string& bytes : {kHeader, kMagic, kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": 2147483647}\n",
                                   kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": -2147483648}\n"}) {
    EXPECT_TRUE(readEventFile(bytes).wellFormed()) << bytes;
  }
  // A touch moved with no touch ended after it, and a record of another kind with no payload.
  const EventFileContents input = readEventFile(kMagic + kMoved + words({9, 1}));
  ASSERT_TRUE(input.wellFormed());
  ASSERT_EQ(input.inputRecords.size(), 2u);
  EXPECT_EQ(input.inputRecords[1].kind(), InputRecord::Kind::Other);
  EXPECT_TRUE(input.inputRecords[1].payload.empty());

  const struct {
    std::string bytes;
    std::size_t offset;
    std::optional<std::size_t> line;
    std::string message;
  } cases[] = {
      {"", 0, std::nullopt, "the file is empty"},
      {"PK\x03\x04", 0, std::nullopt, "not an event file"},
      {"GEV\n2\n" + kLine, 4, 2, "bad header"},
      {"GEV\n1", 5, 2, "ends inside the header"},
      {kHeader + kLine + "{\"a\": \"x\"", 47, 4, "truncated last line"},
      {kHeader + kLine + "{\"a\": \"say \"hi\"\", \"e\": \"x\", \"t\": 1}\n", 47, 4, "not one JSON object"},
      {kHeader + "[1, 2]\n", 6, 3, "not one JSON object"},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": 1} {}\n", 6, 3, "not one JSON object"},
      {kHeader + "\n", 6, 3, "not one JSON object"},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\"}\n", 6, 3, "no whole number \"t\""},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": 2147483648}\n", 6, 3, "does not fit in 32 bits"},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": -2147483649}\n", 6, 3, "does not fit in 32 bits"},
      {kHeader + "{\"a\": \"x\", \"e\": 1, \"t\": 1}\n", 6, 3, "no text \"e\""},
      {kHeader + "{\"a\": \"caf\x80\", \"e\": \"y\", \"t\": 1}\n", 6, 3, "column 11 is outside 7-bit ASCII"},
      {"INP\x03" + kMoved, 3, std::nullopt, "an unknown version"},
      {"INP", 3, std::nullopt, "ends inside the magic"},
      {kMagic + kMoved + kEnded.substr(0, 6), 36, std::nullopt, "truncated last record: 6 bytes"},
      {kMagic + words({1, 0, 5}), 8, std::nullopt, "word count 0 is less than 1"},
      {kMagic + words({1, 0x7FFFFFFF}), 8, std::nullopt, "runs past the end"},
  };
  for (const auto& c : cases) {
    const EventFileContents contents = readEventFile(c.bytes);
    EXPECT_FALSE(contents.wellFormed()) << c.message;
    ASSERT_EQ(contents.problems.size(), 1u) << c.message;
    EXPECT_EQ(contents.problems[0].offset, c.offset) << c.message;
    EXPECT_EQ(contents.problems[0].line, c.line) << c.message;
    EXPECT_NE(contents.problems[0].message.find(c.message), std::string::npos) << contents.problems[0].message;
  }
}

using InspectTool = ToolTest;

TEST_F(InspectTool, PrintsTablesOrOneJsonDocumentAndExitsByTheWorstFile) {
  const ToolRun run = runTool({"inspect", write("g.evt", kHeader + kLine), write("i.evt", kMagic + kMoved + kEnded)});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("game event file, 47 bytes, 1 game event\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("4250  jump  level-2\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("12345  touch moved       3   16887   15549  0\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("12400  touch ended       3\n"), std::string::npos) << run.out;

  const std::string game = write("bad.evt", kHeader + kLine + "oops\n");
  const ToolRun bad = runTool({"inspect", game, write("torn.evt", kMagic + kMoved + kEnded.substr(0, 17))});
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.out.find(", MALFORMED\n"), std::string::npos) << bad.out;
  EXPECT_NE(bad.out.find("error at byte 47, line 4: the line is not one JSON object"), std::string::npos) << bad.out;
  EXPECT_NE(bad.out.find("error at byte 40: word count 4 runs past the end"), std::string::npos) << bad.out;

  const std::string good = write("ok.evt", kMagic + kMoved);
  const ToolRun json = runTool({"inspect", "--json", game, good});
  EXPECT_EQ(json.status, 1);
  nlohmann::json document = nlohmann::json::parse(json.out);
  for (auto& file : document.at("files")) file.erase("path");
  EXPECT_EQ(document, nlohmann::json::parse(R"({"wellFormed": false, "files": [
      {"kind": "game", "bytes": 52, "wellFormed": false,
       "events": [{"line": 3, "offset": 6, "t": 4250, "a": "jump", "e": "level-2"}],
       "problems": [{"offset": 47, "line": 4, "message": "the line is not one JSON object"}]},
      {"kind": "input", "bytes": 36, "wellFormed": true, "problems": [], "events": [
       {"offset": 4, "t": 12345, "kind": "touch moved", "markIndex": 3, "x": 16887, "y": 15549, "landscape": 0}]}]})"));

  EXPECT_EQ(runTool({"inspect", directory_.path() + "/none.evt", good}).status, 1);
  EXPECT_EQ(runTool({"inspect"}).status, 2);
}

}  // namespace
}  // namespace tavrel::testing
