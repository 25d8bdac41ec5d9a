// What only some games need (display, OpenGL, Vulkan, fallback fonts) warns and leaves the status at 0;
// each picture is drawn by the tool in a process of its own, whose environment names the fonts.

#include "support/tool_runner.hpp"

#include "endpoint/https_server.hpp"

#include <nlohmann/json.hpp>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

namespace tavrel::testing {
namespace {

using Doctor = ToolTest;

TEST_F(Doctor, EachCheckPassesFailsWithItsFixOrOnlyWarns) {
  // Documents where no file can be made: a directory without write permission, or for root,
  // who passes that, one in /proc.
  std::string unwritable = "/proc/self";
  if (geteuid() != 0) {
    unwritable = directory_.path() + "/locked";
    mkdir(unwritable.c_str(), 0500);
  }
  endpoint::HttpsServer server;
  server.start();
  const std::vector<std::string> some{"display", "opengl", "vulkan", "fallback-fonts"};
  const struct {
    std::vector<std::string> checks, arguments, environment;
    int status;
    bool ok;
    const char *field = "detail", *says = "";
  } cases[] = {
      {{"documents", "ca-bundle", "service", "fonts"}, {"--url", server.url("/"), "--ca-file", server.caFile()}, {},
       0, true, "detail", ""},
      {{"service"}, {"--url", server.url("/"), "--ca-file", server.caFile()}, {}, 0, true, "detail",
       "certificate verified"},
      {{"documents"}, {}, {"TAVREL_DOCUMENTS=" + unwritable}, 1, false, "fix", "TAVREL_DOCUMENTS"},
      {{"ca-bundle"}, {"--ca-file", directory_.path() + "/missing.pem"}, {}, 1, false, "detail", "missing.pem"},
      // A server whose certificate the system's bundle does not trust: nothing is sent to it.
      {{"service"}, {"--url", server.url("/")}, {}, 1, false, "fix", "not trusted"},
      {some, {},
       {"DISPLAY=", "WAYLAND_DISPLAY=", "VK_ICD_FILENAMES=/nonexistent.json",
        "__EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent.json",
        "FONTCONFIG_FILE=" + write("no-fonts.conf", "<fontconfig></fontconfig>\n")},
       0, false, "fix", ""},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments{"doctor", "--json"}, environment{"TAVREL_DOCUMENTS=" + directory_.path()};
    for (const auto& check : c.checks) arguments.insert(arguments.end(), {"--check", check});
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    environment.insert(environment.begin(), c.environment.begin(), c.environment.end());
    server.clearRequests();
    const ToolRun run = runTool(arguments, environment);
    EXPECT_TRUE(c.ok || server.requests().empty()) << "sent over an untrusted connection";
    EXPECT_EQ(run.status, c.status) << c.checks[0] << run.out << run.err;
    ASSERT_TRUE(nlohmann::json::accept(run.out)) << run.out << run.err;
    const nlohmann::json out = nlohmann::json::parse(run.out);
    ASSERT_EQ(out["checks"].size(), c.checks.size()) << out;
    for (const auto& check : out["checks"]) {
      EXPECT_EQ(std::tuple(check["ok"], check["needed"], check["fix"].is_null()),
                std::tuple(c.ok, c.checks != some, c.ok))
          << check;
      EXPECT_NE(check[c.field].get<std::string>().find(c.says), std::string::npos) << check;
      EXPECT_TRUE(c.ok || check["fix"] != "") << check;
    }
  }
  // A compositor's socket found by its whole path, and a path one byte too long for sockaddr_un.
  const std::string socketPath = directory_.path() + "/wayland-0";
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
  const int compositor = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(compositor, reinterpret_cast<sockaddr*>(&address), sizeof address) | listen(compositor, 1), 0);
  for (const auto& [display, says] : {std::pair{socketPath, std::string("OK    display")},
                                      {"/" + std::string(107, 'w'), "path is too long"}}) {
    const ToolRun run = runTool({"doctor", "--check", "display"}, {"DISPLAY=", "WAYLAND_DISPLAY=" + display});
    EXPECT_NE(run.out.find(says), std::string::npos) << run.out;
  }
  close(compositor);
}

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
