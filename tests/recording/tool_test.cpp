#include "sample_events.hpp"
#include "support/tool_runner.hpp"

#include <nlohmann/json.hpp>

namespace tavrel::testing {
namespace {

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
