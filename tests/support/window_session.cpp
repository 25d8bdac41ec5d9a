#include "support/window_session.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <tuple>
#include <utility>

namespace tavrel::testing {

using nlohmann::json;

namespace {

// The rest of the line after `key` in `text`; empty when it is not there.
std::string lineValue(const std::string& text, const std::string& key) {
  const auto at = text.find(key);
  if (at == std::string::npos) return {};
  const auto start = at + key.size();
  return text.substr(start, text.find('\n', start) - start);
}

std::string capture(const std::string& command) { return runProgram("sh", {"-c", command}).out; }

bool contains(const std::string& path, const std::string& text) { return readFile(path).find(text) != std::string::npos; }

// The root view controller's "presentedViewController" (a page) or "view" (the game's own).
const json& root(const json& tree, const char* part) {
  static const json none;
  return tree.is_object() ? tree["rootViewController"][part] : none;
}
const json& presentedPage(const json& tree) { return root(tree, "presentedViewController"); }

std::optional<Found> field(const json& tree, const char* placeholder) {
  if (!presentedPage(tree).is_object()) return std::nullopt;
  return find(presentedPage(tree)["view"], [&](const json& v) { return v.value("placeholder", json()) == placeholder; });
}

}  // namespace

bool waitUntil(const std::function<bool()>& done, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return true;
}

std::string sourcePath(const std::string& relative) { return TAVREL_SOURCE_DIR "/" + relative; }

Service startService(const std::string& dir, const std::string& scheme, const std::vector<std::string>& more) {
  Service service;
  std::vector<std::string> argv{toolPath(), "serve", "--token", std::string(48, 'A'), "--user", "ann:secret-pw",
                                "--scheme", scheme};
  argv.insert(argv.end(), more.begin(), more.end());
  const std::string log = dir + "/serve.log";
  service.process = std::make_unique<Background>(argv, log);
  if (!waitUntil([&] { return contains(log, "launch-url:"); })) {
    service.error = "tavrel serve did not start: " + readFile(log);
    return service;
  }
  const std::string served = readFile(log);
  service.baseUrl = lineValue(served, "base-url: ");
  service.caFile = lineValue(served, "ca-file: ");
  return service;
}

std::string Service::launchUrl(const std::string& scheme, const std::string& token) const {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto composed = runTool({"launch-url", "compose", "--scheme", scheme, "--token", token, "--game-event-url",
                                 baseUrl + "/game-events.evt", "--input-event-url", baseUrl + "/input-events.evt",
                                 "--recording-started-at",
                                 std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count())});
  return composed.status == 0 ? composed.out.substr(0, composed.out.find('\n')) : "";
}

std::optional<Found> find(const json& view, const std::function<bool(const json&)>& match, double x, double y) {
  if (!view.is_object()) return std::nullopt;
  const auto& frame = view["frame"];
  x += frame[0].get<double>();
  y += frame[1].get<double>();
  if (match(view)) return Found{{static_cast<int>(x), static_cast<int>(y), frame[2].get<int>(), frame[3].get<int>()}, view};
  for (const auto& subview : view["subviews"]) {
    if (auto found = find(subview, match, x, y)) return found;
  }
  return std::nullopt;
}

bool Shot::load(const std::string& path) {
  surface.reset(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
  if (window.id.empty()) {
    window.width = cairo_image_surface_get_width(surface.get());
    window.height = cairo_image_surface_get_height(surface.get());
  }
  return cairo_surface_status(surface.get()) == CAIRO_STATUS_SUCCESS;
}

std::uint32_t Shot::at(int x, int y) const {
  const unsigned char* data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  return reinterpret_cast<const std::uint32_t*>(data + (window.y0 + y) * stride)[window.x0 + x] & 0xffffff;
}

int Shot::count(const std::function<bool(std::uint32_t)>& pass, int top, int bottom, int left, int right) const {
  int n = 0;
  for (int y = top; y < (bottom < 0 ? window.height : bottom); ++y) {
    for (int x = left; x < (right < 0 ? window.width : right); ++x) n += pass(at(x, y)) ? 1 : 0;
  }
  return n;
}

bool isWhite(std::uint32_t p) { return (p >> 16) >= 235 && ((p >> 8) & 0xff) >= 235 && (p & 0xff) >= 235; }
bool isLoginOrange(std::uint32_t p) {
  return (p >> 16) >= 245 && ((p >> 8) & 0xff) >= 92 && ((p >> 8) & 0xff) <= 112 && (p & 0xff) <= 10;
}
bool isGround(std::uint32_t p) { return p == 0x1e5a32; }
bool isMarked(std::uint32_t p) { return (p >> 16) > 150 && (p & 0xff) > 150; }

bool ExampleWindowTest::launch(const std::string& name, std::vector<std::string> argv, bool build,
                               const std::string& search) {
  dir_ = work_.path();
  // sdl2_game's screenshots in sdl2_window/, and so on.
  shots_ = (std::filesystem::current_path() / (name.substr(0, name.rfind('_')) + "_window")).string();
  std::filesystem::create_directories(shots_);
  x_ = startXServer(dir_ + "/xvfb.log");
  if (!x_) {
    [&] { GTEST_SKIP() << "no X server could be started (Xvfb, from scripts/setup): " << readFile(dir_ + "/xvfb.log"); }();
    return false;
  }
  setenv("DISPLAY", x_->display.c_str(), 1);
  if (std::getenv("XDG_RUNTIME_DIR") == nullptr) setenv("XDG_RUNTIME_DIR", dir_.c_str(), 1);  // else Mesa complains
  if (build) {
    const std::string prefix = dir_ + "/prefix";
    EXPECT_TRUE(run("cmake --install '" TAVREL_BINARY_DIR "' --prefix '" + prefix + "' && cmake -S '" +
                    sourcePath("examples/" + name) + "' -B '" + dir_ + "/game' -G Ninja -DCMAKE_PREFIX_PATH='" +
                    prefix + "' && cmake --build '" + dir_ + "/game'"))
        << "the example does not build against the installed package: " << logs();
    argv.push_back(dir_ + "/game/" + name);
  }
  std::string scheme;
  for (char c : name) scheme += c == '_' ? "" : std::string(1, c);
  service_ = startService(dir_, scheme);
  const std::string url = service_.launchUrl(scheme, kRefusedToken);
  if (HasFailure() || !service_.error.empty() || url.empty()) {
    ADD_FAILURE() << service_.error << " no launch URL or no game";
    return false;
  }
  for (const auto& [variable, value] : {std::pair{"TAVREL_CA_FILE", service_.caFile},
                                        {"TAVREL_SERVICE_URL", service_.baseUrl},
                                        {"TAVREL_TREE_FILE", dir_ + "/tree.json"},
                                        {"TAVREL_DOCUMENTS", dir_ + "/documents"}}) {
    setenv(variable, value.c_str(), 1);
  }
  argv.insert(argv.end(), {kRefusedToken, url});
  game_ = std::make_unique<Background>(argv, dir_ + "/game.log");

  // The refusal brings the page.
  if (!findPage()) {
    ADD_FAILURE() << "no login page: " << logs();
    return false;
  }
  window_.id = capture("timeout 30 xdotool search --sync --onlyvisible " + (search.empty() ? "--name '^" + name + "$'" : search) +
                       " | head -1");
  window_.id = window_.id.substr(0, window_.id.find('\n'));
  if (window_.id.empty() || !readGeometry()) {
    ADD_FAILURE() << "no window: " << window_.id;
    return false;
  }
  return true;
}

bool ExampleWindowTest::readGeometry() {
  const std::string geometry = capture("xdotool getwindowgeometry " + window_.id);
  const bool read =
      std::sscanf(lineValue(geometry, "Position: ").c_str(), "%d,%d", &window_.x0, &window_.y0) == 2 &&
      std::sscanf(lineValue(geometry, "Geometry: ").c_str(), "%dx%d", &window_.width, &window_.height) == 2;
  shot_.window = window_;
  return read;
}

void ExampleWindowTest::TearDown() {
  if (game_) {
    EXPECT_TRUE(game_->running()) << logs();
  }
  game_.reset();
  service_.process.reset();
  x_.reset();
}

bool ExampleWindowTest::findPage(int width) {
  json last;
  const bool slidIn = waitUntil([&] {
    last = tree();
    const json& page = presentedPage(last);
    return page.is_object() && page["view"].is_object() && page["view"]["frame"][1] == 0 &&
           (width == 0 || page["view"]["frame"][2] == width);
  });
  const json& page = presentedPage(last);
  if (!slidIn) return false;
  const auto login = find(page["view"], [](const json& v) { return v.value("currentTitle", json()) == "Login"; });
  const auto username = field(last, "Tavrel username");
  const auto password = field(last, "Password");
  if (page["class"] != "LoginViewController" || !login || !username || !password) return false;
  std::tie(username_, password_, login_) = std::tuple{username->box, password->box, login->box};
  return true;
}

bool ExampleWindowTest::shows(const std::string& png, const std::function<bool()>& seen, double seconds) {
  return waitUntil([&] { return run("import -window root '" + shots_ + "/" + png + "'") && shot_.load(shots_ + "/" + png) && seen(); },
                   seconds);
}

bool ExampleWindowTest::loginButtonShown() const {
  return shot_.count(isLoginOrange, login_.midY(), login_.midY() + 1, login_.x + 4, login_.x + 5) == 1;
}

bool ExampleWindowTest::click(const Box& box) {
  return run("xdotool mousemove --window " + window_.id + " " + std::to_string(box.midX()) + " " +
             std::to_string(box.midY()) + " click 1");
}

void ExampleWindowTest::logIn() {
  ASSERT_TRUE(run("xdotool windowfocus --sync " + window_.id)) << logs();
  const auto typeInto = [&](const Box& box, const char* placeholder, const std::string& text) {
    const auto fieldShows = [&](const char* key, const json& value) {
      return waitUntil([&] {
        const auto found = field(tree(), placeholder);
        return found && found->view.value(key, json()) == value;
      });
    };
    // Keys typed before the click has given the field the focus would go to the game.
    return click(box) && fieldShows("isFirstResponder", true) && run("xdotool type --delay 40 " + text) &&
           fieldShows("text", text);
  };
  ASSERT_TRUE(typeInto(username_, "Tavrel username", "ann")) << "the user name was not typed: " << logs();
  ASSERT_TRUE(typeInto(password_, "Password", "secret-pw")) << "the password was not typed: " << logs();
  // The service knows only ann:secret-pw: the login through it takes the page away.
  ASSERT_TRUE(click(login_));
  ASSERT_TRUE(waitUntil([&] { return tree().is_object() && presentedPage(tree()).is_null(); })) << logs();
  ASSERT_TRUE(waitUntil([&] { return contains(dir_ + "/game.log", "the session may go on"); })) << logs();
  // The service logs a request once its reply is out: after the game may have heard it.
  EXPECT_TRUE(waitUntil([&] { return contains(dir_ + "/serve.log", "POST /m/launch/project/auth/ios 200"); }));
}

bool ExampleWindowTest::marked() const {
  return find(root(tree(), "view"), [](const json& v) { return v.value("class", json()) == "TouchMark"; }).has_value();
}

bool ExampleWindowTest::fingerDown(Box from, Box to) {
  const auto at = [&](const Box& b) { return " mousemove --window " + window_.id + " " + std::to_string(b.x) + " " + std::to_string(b.y); };
  return run("xdotool" + at(from) + " mousedown 1" + at(to)) && waitUntil([&] { return marked(); });
}

// Else the next fingerDown() would take the old mark, still in the tree, for its own.
void ExampleWindowTest::fingerUp() { EXPECT_TRUE(run("xdotool mouseup 1") && waitUntil([&] { return !marked(); })); }

bool ExampleWindowTest::resize(int width, int height) {
  if (!run("xdotool windowsize --sync " + window_.id + " " + std::to_string(width) + " " + std::to_string(height)) ||
      !readGeometry() || window_.width != width || window_.height != height) {
    return false;
  }
  return !presentedPage(tree()).is_object() || findPage(width);
}

bool ExampleWindowTest::run(const std::string& command) {
  return std::system(("(" + command + ") >>'" + dir_ + "/commands.log' 2>&1").c_str()) == 0;
}

json ExampleWindowTest::tree() const {
  std::ifstream in(dir_ + "/tree.json");
  return json::parse(in, nullptr, /*allow_exceptions=*/false);
}

bool ExampleWindowTest::watermarked() const {
  const std::string ending = "-" + kRefusedToken.substr(24);
  const auto hasId = [&](const json& v) {
    const auto text = v.value("text", json());
    return text.is_string() && text.get<std::string>().ends_with(ending);
  };
  // The game writes its tree each second: the watermark may come a write after the login.
  return waitUntil([&] { return find(root(tree(), "view"), hasId).has_value(); });
}

std::string ExampleWindowTest::logs() const {
  std::string all;
  for (const char* name : {"game.log", "serve.log", "commands.log"}) {
    std::ifstream in(dir_ + "/" + name);
    all += std::string("--- ") + name + "\n" + std::string(std::istreambuf_iterator<char>(in), {});
  }
  return all;
}

}  // namespace tavrel::testing
