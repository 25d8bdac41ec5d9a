#include "recording/event_file_reader.hpp"
#include "sample_events.hpp"
#include "support/tool_runner.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace tavrel::testing {
namespace {

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
