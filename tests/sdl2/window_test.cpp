// The library in a real window, as a player meets it on Linux: the package installed into a
// scratch prefix, the example game built against it, the mock service (tavrel serve), an X
// server (Xvfb), and the game started with a token the service refuses. Real X input (xdotool)
// logs in through the page; screenshots (ImageMagick's import) and the view tree the game
// writes each second show the page go and the watermark drawn over the game's own scene.
// The screenshots stay in the build tree (sdl2_window/*.png) to be looked at.

#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"
#include "support/x_server.hpp"

#include <cairo.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>


#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using nlohmann::json;
using tavrel::testing::Background;
using tavrel::testing::readFile;
using tavrel::testing::startXServer;

const std::string kAcceptedToken(48, 'A');
const std::string kRefusedToken = std::string(24, 'r') + "PLAYER-ID-OF-24-CHARS-00";

bool run(const std::string& command, const std::string& log) {
  return std::system(("(" + command + ") >>'" + log + "' 2>&1").c_str()) == 0;
}

std::string capture(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
    pclose(pipe);
  }
  return out;
}

// Polls until `done` holds; the bound is generous, what is checked is the state reached.
bool waitUntil(const std::function<bool()>& done, double seconds = 30.0) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return true;
}

std::string lineValue(const std::string& text, const std::string& key) {
  const auto at = text.find(key);
  if (at == std::string::npos) return {};
  const auto start = at + key.size();
  return text.substr(start, text.find('\n', start) - start);
}

json readTree(const std::string& path) {
  std::ifstream in(path);
  return json::parse(in, nullptr, /*allow_exceptions=*/false);
}

// A view's frame in window points.
struct Box {
  int x = 0, y = 0, width = 0, height = 0;
  int midX() const { return x + width / 2; }
  int midY() const { return y + height / 2; }
};

// The first view under `view` (whose superview is at x, y) that `match` takes.
std::optional<Box> find(const json& view, const std::function<bool(const json&)>& match, double x = 0, double y = 0) {
  if (!view.is_object()) return std::nullopt;
  const auto& frame = view["frame"];
  x += frame[0].get<double>();
  y += frame[1].get<double>();
  if (match(view)) {
    return Box{static_cast<int>(x), static_cast<int>(y), frame[2].get<int>(), frame[3].get<int>()};
  }
  for (const auto& subview : view["subviews"]) {
    if (auto found = find(subview, match, x, y)) return found;
  }
  return std::nullopt;
}

const json& presentedPage(const json& tree) {
  static const json none;
  if (!tree.is_object()) return none;
  return tree["rootViewController"]["presentedViewController"];
}

// A screenshot, read back with Cairo, and the window's place on it.
struct Shot {
  std::shared_ptr<cairo_surface_t> surface;
  int x0 = 0, y0 = 0, width = 0, height = 0;

  // Pixels of the window's rows [top, bottom) and columns [left, right) whose 0xRRGGBB passes.
  int count(const std::function<bool(std::uint32_t)>& pass, int top, int bottom, int left = 0, int right = -1) const {
    const unsigned char* data = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    int n = 0;
    for (int y = top; y < bottom; ++y) {
      const auto* row = reinterpret_cast<const std::uint32_t*>(data + (y0 + y) * stride) + x0;
      for (int x = left; x < (right < 0 ? width : right); ++x) n += pass(row[x] & 0xffffff) ? 1 : 0;
    }
    return n;
  }
};

bool isWhite(std::uint32_t p) { return (p >> 16) >= 235 && ((p >> 8) & 0xff) >= 235 && (p & 0xff) >= 235; }
bool isLoginOrange(std::uint32_t p) {  // the Login button's (1, 0.4, 0)
  return (p >> 16) >= 245 && ((p >> 8) & 0xff) >= 92 && ((p >> 8) & 0xff) <= 112 && (p & 0xff) <= 10;
}

TEST(Sdl2Window, aRefusedPlayerLogsInThroughThePageAndTheWatermarkShowsOverTheGame) {
  const std::string tool = tavrel::testing::toolPath();
  ASSERT_FALSE(tool.empty()) << "TAVREL_TOOL is not set";
  tavrel::testing::TemporaryDirectory work;
  const std::string dir = work.path();
  const std::string log = dir + "/commands.log";
  const std::string shots = TAVREL_SDL2_TEST_OUT;
  std::filesystem::create_directories(shots);

  auto x = startXServer(dir + "/xvfb.log");
  if (!x) GTEST_SKIP() << "no X server could be started (Xvfb, from scripts/setup): " << readFile(dir + "/xvfb.log");
  setenv("DISPLAY", x->display.c_str(), 1);  // for the game, xdotool and import

  const std::string prefix = dir + "/prefix";
  ASSERT_TRUE(run("cmake --install '" TAVREL_BINARY_DIR "' --prefix '" + prefix + "'", log)) << readFile(log);
  ASSERT_TRUE(run("cmake -S '" TAVREL_SOURCE_DIR "/examples/sdl2_game' -B '" + dir + "/game' -G Ninja -DCMAKE_PREFIX_PATH='" +
                      prefix + "' && cmake --build '" + dir + "/game'",
                  log))
      << readFile(log);

  Background serve({tool, "serve", "--token", kAcceptedToken, "--user", "ann:secret-pw", "--scheme", "sdl2game"},
                   dir + "/serve.log");
  ASSERT_TRUE(waitUntil([&] { return readFile(dir + "/serve.log").find("launch-url:") != std::string::npos; }));
  const std::string served = readFile(dir + "/serve.log");
  const std::string baseUrl = lineValue(served, "base-url: ");
  const auto composed = tavrel::testing::runTool(
      {"launch-url", "compose", "--scheme", "sdl2game", "--token", kRefusedToken, "--game-event-url",
       baseUrl + "/game-events.evt", "--input-event-url", baseUrl + "/input-events.evt", "--recording-started-at",
       std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::system_clock::now().time_since_epoch()).count())});
  ASSERT_EQ(composed.status, 0) << composed.err;
  const std::string launchUrl = composed.out.substr(0, composed.out.find('\n'));

  const std::string treeFile = dir + "/tree.json";
  for (const auto& [name, value] : {std::pair{"SDL_VIDEODRIVER", std::string("x11")},
                                    {"TAVREL_CA_FILE", lineValue(served, "ca-file: ")},
                                    {"TAVREL_SERVICE_URL", baseUrl},
                                    {"TAVREL_TREE_FILE", treeFile},
                                    {"TAVREL_DOCUMENTS", dir + "/documents"}}) {
    setenv(name, value.c_str(), 1);
  }
  Background game({dir + "/game/sdl2_game", kRefusedToken, launchUrl}, dir + "/game.log");

  // The refusal brings the page; it has slid in when its view is at the top.
  json tree;
  ASSERT_TRUE(waitUntil([&] {
    tree = readTree(treeFile);
    const json& page = presentedPage(tree);
    return page.is_object() && page["view"].is_object() && page["view"]["frame"][1] == 0;
  })) << readFile(dir + "/game.log");
  EXPECT_EQ(presentedPage(tree)["class"], "LoginViewController");
  const json page = presentedPage(tree)["view"];
  const auto field = [](const char* placeholder) {
    return [placeholder](const json& v) { return v.value("placeholder", json()) == placeholder; };
  };
  const auto username = find(page, field("Tavrel username"));
  const auto password = find(page, field("Password"));
  const auto login = find(page, [](const json& v) { return v.value("currentTitle", json()) == "Login"; });
  ASSERT_TRUE(username && password && login) << page.dump(1);

  std::string windowId = capture("xdotool search --sync --onlyvisible --name '^sdl2_game$' | head -1");
  windowId = windowId.substr(0, windowId.find('\n'));
  ASSERT_FALSE(windowId.empty());
  const std::string geometry = capture("xdotool getwindowgeometry " + windowId);
  Shot shot;
  ASSERT_EQ(std::sscanf(lineValue(geometry, "Position: ").c_str(), "%d,%d", &shot.x0, &shot.y0), 2) << geometry;
  ASSERT_EQ(std::sscanf(lineValue(geometry, "Geometry: ").c_str(), "%dx%d", &shot.width, &shot.height), 2) << geometry;
  const auto screenshot = [&](const std::string& name) {
    const std::string path = shots + "/" + name;
    EXPECT_TRUE(run("import -window root '" + path + "'", log)) << readFile(log);
    shot.surface.reset(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
    return cairo_surface_status(shot.surface.get()) == CAIRO_STATUS_SUCCESS;
  };
  // The button shows where the tree puts it (beside its title, which is white).
  ASSERT_TRUE(waitUntil([&] {
    return screenshot("page.png") && shot.count(isLoginOrange, login->midY(), login->midY() + 1, login->x + 4, login->x + 5) == 1;
  }));

  const auto click = [&](const Box& at) {
    return run("xdotool mousemove --window " + windowId + " " + std::to_string(at.midX()) + " " +
                   std::to_string(at.midY()) + " click 1",
               log);
  };
  const std::string type = "xdotool type --delay 40 ";
  ASSERT_TRUE(run("xdotool windowfocus --sync " + windowId, log)) << readFile(log);
  ASSERT_TRUE(click(*username) && run(type + "ann", log) && click(*password) && run(type + "secret-pw", log))
      << readFile(log);
  screenshot("typed.png");

  // The login through the service (which knows only ann:secret-pw, so the typing arrived)
  // takes the page away; the game plays under the overlay.
  ASSERT_TRUE(click(*login));
  ASSERT_TRUE(waitUntil([&] {
    tree = readTree(treeFile);
    return tree.is_object() && presentedPage(tree).is_null();
  })) << readFile(dir + "/serve.log");
  ASSERT_TRUE(waitUntil([&] { return screenshot("played.png") && shot.count(isLoginOrange, 0, shot.height) == 0; }));
  EXPECT_NE(readFile(dir + "/game.log").find("the session may go on"), std::string::npos);
  EXPECT_NE(readFile(dir + "/serve.log").find("POST /m/launch/project/auth/ios 200"), std::string::npos);

  // White is the library's alone: the watermark's text. The ground shows through the overlay.
  const std::string userId = kRefusedToken.substr(24, 24);
  const auto watermark = [&](const json& v) {
    const auto text = v.value("text", json());
    return text.is_string() && text.get<std::string>().ends_with("-" + userId);
  };
  EXPECT_TRUE(find(tree["rootViewController"]["view"], watermark)) << tree.dump(1);
  EXPECT_GT(shot.count(isWhite, 0, shot.height), 40);
  const int ground = shot.count([](std::uint32_t p) { return p == 0x1e5a32; }, 490, shot.height);  // (30, 90, 50)
  EXPECT_GT(ground, shot.width * (shot.height - 490) / 2);
  EXPECT_TRUE(game.running());
}

}  // namespace
