// Each picture is drawn by the tool in a process of its own, whose environment names the fonts.

#include "support/tool_runner.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tavrel::testing {
namespace {

// 24 characters of token, then the user id (24 characters) the watermark shows.
const std::string kCyrillicToken = std::string(24, 'a') + "Игорь-Петров-игрок-00001";
const std::string kDevanagariToken = std::string(24, 'a') + "देवनागरी-खिलाड़ी-0000001";

class Fonts : public ToolTest {
 protected:
  // The picture `render` draws, with the machine's fonts or (`withoutFonts`) with none.
  std::string picture(std::vector<std::string> render, bool withoutFonts) {
    const std::string png = directory_.path() + "/" + std::to_string(count_++) + ".png";
    render.insert(render.begin(), "render");
    render.insert(render.end(), {"-o", png});
    const ToolRun run = runTool(render, withoutFonts ? std::vector<std::string>{"FONTCONFIG_FILE=" + noFonts_}
                                                     : std::vector<std::string>{});
    EXPECT_EQ(run.status, 0) << run.err;
    return readFile(png);
  }

  const std::string noFonts_ = write("no-fonts.conf", "<?xml version=\"1.0\"?>\n<fontconfig></fontconfig>\n");
  int count_ = 0;
};

TEST_F(Fonts, PicturesAreTheSameWithoutAnyFontOnTheMachine) {
  const std::string gallery = directory_.path() + "/gallery.json";
  const std::vector<std::vector<std::string>> renders = {
      {"gallery", "--size", "844x390", "--tree", gallery},
      {"login", "--size", "390x844", "--state", "typed"},
      {"login", "--size", "844x390", "--state", "refused"},
      {"overlay", "--size", "390x844", "--user-id-token", kCyrillicToken},
  };
  for (const auto& render : renders) {
    const std::string normal = picture(render, false);
    EXPECT_FALSE(normal.empty());
    EXPECT_TRUE(normal == picture(render, true)) << render[0] << " " << render[2] << " differs";
  }
  // The gallery's last column ends at the right margin.
  const nlohmann::json tree = nlohmann::json::parse(readFile(gallery));
  double right = 0;
  for (const auto& view : tree["rootViewController"]["view"]["subviews"])
    right = std::max(right, view["frame"][0].get<double>() + view["frame"][2].get<double>());
  EXPECT_EQ(right, 844 - 16);
}

TEST_F(Fonts, AScriptOurFacesLackComesFromTheMachineOrAsBoxes) {
  const std::string tree = directory_.path() + "/tree.json";
  const std::vector<std::string> render = {"overlay", "--size", "844x390", "--user-id-token", kDevanagariToken,
                                           "--tree", tree};
  const std::string boxes = picture(render, true);
  // The watermark still holds the whole id, measured as its boxes are wide.
  EXPECT_NE(readFile(tree).find(kDevanagariToken.substr(24)), std::string::npos);
  if (runProgram("fc-list", {":lang=hi"}).out.empty()) GTEST_SKIP() << "no Devanagari font on this machine (fonts-lohit-deva)";
  EXPECT_FALSE(picture(render, false) == boxes) << "the machine's Devanagari font was not used";
}

}  // namespace
}  // namespace tavrel::testing
