#include "support/window_session.hpp"

#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <utility>
#include <vector>

namespace tavrel::testing {

using nlohmann::json;

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

bool waitUntil(const std::function<bool()>& done, double seconds) {
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

ExampleSession startExampleSession(const std::string& name, const std::string& dir) {
  ExampleSession session;
  session.dir = dir;
  session.log = dir + "/commands.log";
  session.x = startXServer(dir + "/xvfb.log");
  if (!session.x) {
    session.noDisplay = true;
    session.error = "no X server could be started (Xvfb, from scripts/setup): " + readFile(dir + "/xvfb.log");
    return session;
  }
  setenv("DISPLAY", session.x->display.c_str(), 1);
  const std::string tool = toolPath();
  if (tool.empty()) {
    session.error = "TAVREL_TOOL is not set";
    return session;
  }
  const std::string prefix = dir + "/prefix";
  if (!run("cmake --install '" TAVREL_BINARY_DIR "' --prefix '" + prefix + "'", session.log) ||
      !run("cmake -S '" TAVREL_SOURCE_DIR "/examples/" + name + "' -B '" + dir + "/game' -G Ninja -DCMAKE_PREFIX_PATH='" +
               prefix + "' && cmake --build '" + dir + "/game'",
           session.log)) {
    session.error = "the example does not build against the installed package: " + readFile(session.log);
    return session;
  }
  session.game = dir + "/game/" + name;

  const std::string scheme = [&] {
    std::string s;
    for (char c : name) if (c != '_') s += c;
    return s;
  }();
  session.serve = std::make_unique<Background>(
      std::vector<std::string>{tool, "serve", "--token", std::string(48, 'A'), "--user", "ann:secret-pw", "--scheme", scheme},
      dir + "/serve.log");
  if (!waitUntil([&] { return readFile(dir + "/serve.log").find("launch-url:") != std::string::npos; })) {
    session.error = "tavrel serve did not start: " + readFile(dir + "/serve.log");
    return session;
  }
  const std::string served = readFile(dir + "/serve.log");
  const std::string baseUrl = lineValue(served, "base-url: ");
  const auto composed = runTool(
      {"launch-url", "compose", "--scheme", scheme, "--token", kRefusedToken, "--game-event-url",
       baseUrl + "/game-events.evt", "--input-event-url", baseUrl + "/input-events.evt", "--recording-started-at",
       std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::system_clock::now().time_since_epoch()).count())});
  if (composed.status != 0) {
    session.error = "no launch URL: " + composed.err;
    return session;
  }
  session.launchUrl = composed.out.substr(0, composed.out.find('\n'));
  session.treeFile = dir + "/tree.json";
  for (const auto& [variable, value] : {std::pair{"TAVREL_CA_FILE", lineValue(served, "ca-file: ")},
                                        {"TAVREL_SERVICE_URL", baseUrl},
                                        {"TAVREL_TREE_FILE", session.treeFile},
                                        {"TAVREL_DOCUMENTS", dir + "/documents"}}) {
    setenv(variable, value.c_str(), 1);
  }
  return session;
}

json readTree(const std::string& path) {
  std::ifstream in(path);
  return json::parse(in, nullptr, /*allow_exceptions=*/false);
}

const json& presentedPage(const json& tree) {
  static const json none;
  if (!tree.is_object()) return none;
  return tree["rootViewController"]["presentedViewController"];
}

std::optional<Box> find(const json& view, const std::function<bool(const json&)>& match, double x, double y) {
  if (!view.is_object()) return std::nullopt;
  const auto& frame = view["frame"];
  x += frame[0].get<double>();
  y += frame[1].get<double>();
  if (match(view)) return Box{static_cast<int>(x), static_cast<int>(y), frame[2].get<int>(), frame[3].get<int>()};
  for (const auto& subview : view["subviews"]) {
    if (auto found = find(subview, match, x, y)) return found;
  }
  return std::nullopt;
}

std::optional<LoginPage> waitForLoginPage(const std::string& treeFile, int width) {
  json tree;
  const bool slidIn = waitUntil([&] {
    tree = readTree(treeFile);
    const json& page = presentedPage(tree);
    return page.is_object() && page["view"].is_object() && page["view"]["frame"][1] == 0 &&
           (width == 0 || page["view"]["frame"][2] == width);
  });
  if (!slidIn || presentedPage(tree)["class"] != "LoginViewController") return std::nullopt;
  const json& view = presentedPage(tree)["view"];
  const auto field = [](const char* placeholder) {
    return [placeholder](const json& v) { return v.value("placeholder", json()) == placeholder; };
  };
  const auto username = find(view, field("Tavrel username"));
  const auto password = find(view, field("Password"));
  const auto login = find(view, [](const json& v) { return v.value("currentTitle", json()) == "Login"; });
  if (!username || !password || !login) return std::nullopt;
  return LoginPage{*username, *password, *login};
}

std::optional<Window> findWindow(const std::string& name) {
  Window window;
  window.id = capture("xdotool search --sync --onlyvisible --name '^" + name + "$' | head -1");
  window.id = window.id.substr(0, window.id.find('\n'));
  if (window.id.empty()) return std::nullopt;
  const std::string geometry = capture("xdotool getwindowgeometry " + window.id);
  if (std::sscanf(lineValue(geometry, "Position: ").c_str(), "%d,%d", &window.x0, &window.y0) != 2 ||
      std::sscanf(lineValue(geometry, "Geometry: ").c_str(), "%dx%d", &window.width, &window.height) != 2) {
    return std::nullopt;
  }
  return window;
}

bool click(const Window& window, const Box& box, const std::string& log) {
  return run("xdotool mousemove --window " + window.id + " " + std::to_string(box.midX()) + " " +
                 std::to_string(box.midY()) + " click 1",
             log);
}

bool typeLogin(const Window& window, const LoginPage& page, const std::string& log) {
  const std::string type = "xdotool type --delay 40 ";
  return run("xdotool windowfocus --sync " + window.id, log) && click(window, page.username, log) &&
         run(type + "ann", log) && click(window, page.password, log) && run(type + "secret-pw", log);
}

std::optional<json> waitForPageGone(const std::string& treeFile) {
  json tree;
  if (!waitUntil([&] {
        tree = readTree(treeFile);
        return tree.is_object() && presentedPage(tree).is_null();
      })) {
    return std::nullopt;
  }
  return tree;
}

bool Shot::take(const std::string& path, const std::string& log) {
  if (!run("import -window root '" + path + "'", log)) return false;
  surface.reset(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
  return cairo_surface_status(surface.get()) == CAIRO_STATUS_SUCCESS;
}

std::uint32_t Shot::at(int x, int y) const {
  const unsigned char* data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  return reinterpret_cast<const std::uint32_t*>(data + (window.y0 + y) * stride)[window.x0 + x] & 0xffffff;
}

int Shot::count(const std::function<bool(std::uint32_t)>& pass, int top, int bottom, int left, int right) const {
  int n = 0;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < (right < 0 ? window.width : right); ++x) n += pass(at(x, y)) ? 1 : 0;
  }
  return n;
}

bool isWhite(std::uint32_t p) { return (p >> 16) >= 235 && ((p >> 8) & 0xff) >= 235 && (p & 0xff) >= 235; }

bool isLoginOrange(std::uint32_t p) {
  return (p >> 16) >= 245 && ((p >> 8) & 0xff) >= 92 && ((p >> 8) & 0xff) <= 112 && (p & 0xff) <= 10;
}

}  // namespace tavrel::testing
