#include "session_runner.hpp"

#include "event_files.hpp"
#include "game_scene.hpp"
#include "session_report.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include "backend/validation.hpp"
#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view_controller.hpp"
#include "platform/sim_platform.hpp"
#include "session/launch_url.hpp"

#include <nlohmann/json.hpp>

#include <stdlib.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

namespace tavrel::cli {
namespace {

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

constexpr double kFrameRate = 60.0;

// A fault that ends the run: a failed check (status 1) or a run error (status 2).
struct RunFailure {
  int status;
  int line;
  std::string message;
};

// The session's time: the simulation's virtual clock, or the wall clock with the Linux
// platform's main loop run while waiting.
class SessionClock {
 public:
  virtual ~SessionClock() = default;
  virtual double now() = 0;
  virtual void runUntil(double time) = 0;
};

class VirtualClock final : public SessionClock {
 public:
  explicit VirtualClock(SimPlatform& sim) : sim_(sim), origin_(sim.elapsed()) {}
  double now() override { return sim_.elapsed() - origin_; }
  // Moving time runs every timer, pass and reply that falls due on the way.
  void runUntil(double time) override {
    const double step = time - now();
    if (step > 0) sim_.advance(step);
  }

 private:
  SimPlatform& sim_;
  double origin_;
};

class WallClock final : public SessionClock {
 public:
  explicit WallClock(Platform& platform) : platform_(platform) {}
  double now() override { return std::chrono::duration<double>(SteadyClock::now() - origin_).count(); }
  void runUntil(double time) override {
    const double step = time - now();
    if (step > 0) platform_.runMainLoopFor(step);
  }

 private:
  Platform& platform_;
  SteadyClock::time_point origin_ = SteadyClock::now();
};

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void writeText(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

// The host id of a script's finger: below -1 (tapElement's finger), so that none meets a
// finger of a window's mouse or touch screen (0 and up) when a player takes over.
int hostFinger(int scriptFinger) { return -2 - scriptFinger; }

// What a run writes in out/.
constexpr std::array<std::string_view, 7> kOutputEntries{"documents", "received",    "snapshots", "sdk.log",
                                                       "report.txt", "report.json", "contact-sheet.png"};

// out/ with fresh documents/, received/ and snapshots/ folders. A folder that holds anything
// else is refused: it is not an earlier run's, and the run would delete folders in it.
void prepareOutput(const fs::path& out) {
  if (fs::is_directory(out)) {
    for (const auto& entry : fs::directory_iterator(out)) {
      const std::string name = entry.path().filename().string();
      if (std::find(kOutputEntries.begin(), kOutputEntries.end(), name) == kOutputEntries.end()) {
        throw fs::filesystem_error("holds " + name + ", which no run writes; name a new or empty folder, or an earlier run's",
                                   out, std::make_error_code(std::errc::directory_not_empty));
      }
    }
  }
  for (const char* folder : {"documents", "received", "snapshots"}) {
    fs::remove_all(out / folder);
    fs::create_directories(out / folder);
  }
  fs::remove(out / "contact-sheet.png");
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// "on the screen: "Login", "Password"", or `none` when nothing is there.
std::string shownTexts(const std::vector<std::string>& texts, const std::string& none) {
  if (texts.empty()) return none;
  std::string joined;
  for (const auto& text : texts) joined += (joined.empty() ? "" : ", ") + quoted(text);
  return "on the screen: " + joined;
}

std::string describeController(const UIViewController& controller) {
  if (dynamic_cast<const LoginViewController*>(&controller)) return "the login page";
  if (const auto* alert = dynamic_cast<const UIAlertController*>(&controller)) {
    return "the alert " + quoted(alert->message().value_or(alert->title().value_or("")));
  }
  return "a controller";
}

bool isOfClass(const UIViewController& controller, const std::string& name) {
  if (name == "any") return true;
  if (name == "LoginViewController") return dynamic_cast<const LoginViewController*>(&controller) != nullptr;
  if (name == "UIAlertController") return dynamic_cast<const UIAlertController*>(&controller) != nullptr;
  return false;
}

class SessionRun {
 public:
  SessionRun(const SessionScript& script, const RunOptions& options)
      : script_(script), options_(options), out_(fs::absolute(options.out)) {}

  int run();

 private:
  // --- Set-up --------------------------------------------------------------------------------
  void startService();
  void startPlatform();
  void startScreen();

  // --- Time and frames ------------------------------------------------------------------------
  double now() { return clock_->now(); }
  // Runs the session up to `time`, drawing every frame that falls on the way.
  void runUntil(double time);
  void frame();
  void moveFingers(double time);
  void watchPresentations();

  // --- Steps ----------------------------------------------------------------------------------
  void execute(const Step& step);
  void perform(const step::InitialiseOverlay& s);
  void perform(const step::ShowTouches&) { sdk().showTouches(); }
  void perform(const step::ShowWatermark&) { sdk().showWatermark(); }
  void perform(const step::Validate&);
  void perform(const step::SetAuthToken& s) { sdk().setAuthToken(s.token); }
  void perform(const step::Launch& s);
  void perform(const step::GameEvent& s);
  void perform(const step::TerminateWithPopup&) { sdk().terminateWithPopup(); }
  void perform(const step::FingerDown& s);
  void perform(const step::FingerMove& s);
  void perform(const step::FingerUp& s);
  void perform(const step::Tap& s);
  void perform(const step::Type& s);
  void perform(const step::Return&);
  void perform(const step::Backspace& s);
  void perform(const step::Wait& s) { runUntil(now() + s.seconds); }
  void perform(const step::At& s);
  void perform(const step::WaitUntil& s);
  void perform(const step::Check& s);
  void perform(const step::Snapshot& s);

  // What a condition finds now: whether it holds, and what was there, for a failure.
  std::pair<bool, std::string> evaluate(const Condition& condition);
  std::vector<std::shared_ptr<UIViewController>> presentedChain() const;
  EventFileContents eventFile(const SessionString& name) const;
  [[noreturn]] void fail(int status, const std::string& message) { throw RunFailure{status, currentLine_, message}; }

  void tell(std::string text);
  void tellAt(double time, std::string text);
  void finishReport();
  int conclude();  // the report, the sheet and the log; returns the exit status
  int setupLine(const char* setting) const;
  static void exitedWith(int status, void* run);
  static TavrelSDK& sdk() { return TavrelSDK::sharedInstance(); }
  std::string serviceUrl() const { return server_ ? server_->baseUrl() : options_.serviceUrl.value_or(""); }

  const SessionScript& script_;
  const RunOptions& options_;
  fs::path out_;
  SteadyClock::time_point wallStart_;
  double cpuStart_ = 0;
  // The run in real time from set-up to its last step: an exit meanwhile ends the session.
  static inline SessionRun* playing = nullptr;
  SessionReport report_;
  std::optional<EventPlot> plot_;  // the recording's, once the session is over
  int currentLine_ = 0;

  std::unique_ptr<endpoint::HttpsServer> server_;
  std::shared_ptr<SimPlatform> sim_;
  std::shared_ptr<Platform> platform_;
  std::unique_ptr<SessionClock> clock_;
  double wallOrigin_ = 0;  // the platform's wall clock at session time 0
  std::thread::id mainThread_ = std::this_thread::get_id();

  std::shared_ptr<UIHost> host_;
  std::shared_ptr<UIWindow> window_;
  std::shared_ptr<GameViewController> game_;
  std::int64_t frameIndex_ = 0;

  struct FingerState {
    CGPoint at;
    std::vector<CGPoint> path;  // from where the move began
    double start = 0;
    double seconds = 0;
    bool moving = false;
  };
  std::map<int, FingerState> fingers_;
  std::int64_t touchesToOverlay_ = 0;  // moved and ended touches that reached the game's views
  std::int64_t gameEventsEmitted_ = 0;

  struct Shown {
    std::string description;
    bool leaving = false;
  };
  std::map<const UIViewController*, Shown> shown_;

  std::mutex mutex_;  // guards what other threads add: story, log lines
  std::vector<StoryEntry> story_;
  std::vector<std::string> log_;
  std::optional<int> exitSeen_;
};

void SessionRun::tellAt(double time, std::string text) {
  std::lock_guard lock(mutex_);
  story_.push_back({time, std::move(text)});
}

// From any thread: the session time is read off the platform's wall clock.
void SessionRun::tell(std::string text) {
  tellAt(platform_ ? platform_->timeIntervalSince1970() - wallOrigin_ : 0, std::move(text));
}

void SessionRun::startService() {
  if (options_.serviceUrl) {
    if (script_.setting.lines.count("service")) fail(2, "service: set by the other service's own options with --service");
    return;
  }
  endpoint::HttpsServer::Options serverOptions;
  serverOptions.keepAlive = true;  // as the real service and `tavrel serve`: the library reuses its connections
  serverOptions.uploadsDirectory = (out_ / "received").string();
  serverOptions.onRecord = [this](const endpoint::RecordedRequest& request) {
    const std::string outcome = request.dropped ? "dropped" : std::to_string(request.status);
    if (request.method == "PUT") {
      tell("upload " + request.path + ": " + outcome + ", " + std::to_string(request.bodySize) + " bytes");
    } else if (request.path == kValidatePath) {
      tell("the service answers a token check (" + outcome + ")");
    } else if (request.path == kLoginPath) {
      tell("the service answers a login (" + outcome + ")");
    }
  };
  server_ = std::make_unique<endpoint::HttpsServer>(serverOptions);
  const SessionSetting& setting = script_.setting;
  endpoint::MockService service;
  service.validTokens = setting.validTokens;
  service.refusedTokens = setting.refusedTokens;
  service.users = setting.users;
  service.refusedUsers = setting.refusedUsers;
  service.delay = std::chrono::milliseconds(std::llround(setting.replyDelay * 1000));
  service.failedUploads = setting.failedUploads;
  service.install(*server_);
}

void SessionRun::startPlatform() {
  const std::uint64_t seed = options_.seed.value_or(script_.setting.seed);
  if (options_.realtime) {
    platform_ = Platform::makeLinux();
  } else {
    sim_ = SimPlatform::create({.seed = seed});
    platform_ = sim_;
  }
  platform_->setDocumentsDirectory((out_ / "documents").string());
  platform_->setTrustedCertificatesFile(server_ ? server_->caFile() : options_.caFile);
  nlohmann::json types = nlohmann::json::array();
  types.push_back({{"CFBundleURLSchemes", script_.setting.urlSchemes}});
  platform_->setInfoDictionaryJson(nlohmann::json{{"CFBundleURLTypes", types}}.dump());
  platform_->setLogToStderr(false);
  platform_->setLogSink([this](std::string_view message) {
    const double time = platform_->timeIntervalSince1970() - wallOrigin_;
    std::lock_guard lock(mutex_);
    log_.push_back("[" + sessionTime(time) + "] " + std::string(message));
  });
  Platform::install(platform_);
  if (sim_) {
    clock_ = std::make_unique<VirtualClock>(*sim_);
  } else {
    clock_ = std::make_unique<WallClock>(*platform_);
  }
  wallOrigin_ = platform_->timeIntervalSince1970();
}

void SessionRun::startScreen() {
  const SessionSetting& setting = script_.setting;
  host_ = options_.target.makeHost ? options_.target.makeHost(setting.screen, setting.scale)
                                   : std::make_shared<HeadlessHost>(setting.screen, setting.scale);
  UIHost::install(host_);
  window_ = std::make_shared<UIWindow>();
  game_ = std::make_shared<GameViewController>(setting.animatedGame);
  window_->setRootViewController(game_);
  // The application's root view controller is the game's, as on a device.
  auto delegate = std::make_shared<UIApplicationDelegate>();
  delegate->setWindow(window_);
  UIApplication::sharedApplication().setDelegate(delegate);
  window_->makeKeyAndVisible();
}

void SessionRun::runUntil(double time) {
  for (;;) {
    const double next = static_cast<double>(frameIndex_ + 1) / kFrameRate;
    if (next > time) break;
    clock_->runUntil(next);
    ++frameIndex_;
    frame();
  }
  clock_->runUntil(time);
}

void SessionRun::frame() {
  const double time = static_cast<double>(frameIndex_) / kFrameRate;
  moveFingers(time);
  game_->animateTo(time);
  watchPresentations();
  if (options_.drawFrames) {
    const auto start = SteadyClock::now();
    host_->renderFrame();
    report_.renderSeconds += std::chrono::duration<double>(SteadyClock::now() - start).count();
    ++report_.frames;
    if (options_.target.afterFrame && !options_.target.afterFrame()) fail(2, "the window was closed");
  }
}

// Fingers on a path move together, as one set of touches a frame.
void SessionRun::moveFingers(double time) {
  std::vector<Finger> moved;
  for (auto& [id, finger] : fingers_) {
    if (!finger.moving) continue;
    const double progress = finger.seconds > 0 ? std::clamp((time - finger.start) / finger.seconds, 0.0, 1.0) : 1.0;
    // Along the path's segments in proportion to their lengths.
    double total = 0;
    for (std::size_t i = 1; i < finger.path.size(); ++i) {
      total += std::hypot(finger.path[i].x - finger.path[i - 1].x, finger.path[i].y - finger.path[i - 1].y);
    }
    double left = progress * total;
    CGPoint at = finger.path.back();
    for (std::size_t i = 1; i < finger.path.size(); ++i) {
      const CGPoint a = finger.path[i - 1];
      const CGPoint b = finger.path[i];
      const double length = std::hypot(b.x - a.x, b.y - a.y);
      if (left <= length && length > 0) {
        at = {a.x + (b.x - a.x) * left / length, a.y + (b.y - a.y) * left / length};
        break;
      }
      left -= length;
    }
    finger.at = at;
    finger.moving = progress < 1.0;
    moved.push_back({hostFinger(id), at});
  }
  if (moved.empty()) return;
  if (!host_->fingersMoved(moved)) touchesToOverlay_ += static_cast<std::int64_t>(moved.size());
}

void SessionRun::watchPresentations() {
  const auto chain = presentedChain();
  std::set<const UIViewController*> present;
  for (const auto& controller : chain) {
    present.insert(controller.get());
    auto [it, fresh] = shown_.try_emplace(controller.get(), Shown{describeController(*controller), false});
    if (fresh) tell(it->second.description + " comes up");
    if (controller->isBeingDismissed()) it->second.leaving = true;
  }
  for (auto it = shown_.begin(); it != shown_.end();) {
    if (present.count(it->first)) {
      ++it;
      continue;
    }
    // An animated dismissal is seen leaving for a few frames first.
    tell(it->second.description + (it->second.leaving ? " goes" : " goes without animation"));
    it = shown_.erase(it);
  }
  if (sim_ && !exitSeen_) {
    if (const auto status = sim_->exitStatus()) {
      exitSeen_ = status;
      tell("the process would end now: exit(" + std::to_string(*status) + ") recorded");
    }
  }
}

std::vector<std::shared_ptr<UIViewController>> SessionRun::presentedChain() const {
  std::vector<std::shared_ptr<UIViewController>> chain;
  for (auto controller = game_->presentedViewController(); controller; controller = controller->presentedViewController()) {
    chain.push_back(controller);
  }
  return chain;
}


EventFileContents SessionRun::eventFile(const SessionString& name) const {
  const auto file = name.get();
  if (!file) return {};
  std::string error;
  const auto bytes = readBinaryFile((out_ / "documents" / *file).string(), error);
  return bytes ? readEventFile(*bytes) : EventFileContents{};
}

std::pair<bool, std::string> SessionRun::evaluate(const Condition& c) {
  switch (c.kind) {
    case Condition::Kind::Presented: {
      const auto chain = presentedChain();
      std::string there;
      bool found = false;
      for (const auto& controller : chain) {
        // A page still sliding in is not there yet for the player.
        found = found || (isOfClass(*controller, c.subject) && (c.negated || !controller->isBeingPresented()));
        there += (there.empty() ? "" : ", over it ") + describeController(*controller);
      }
      return {found != c.negated, there.empty() ? "nothing is presented" : "presented: " + there};
    }
    case Condition::Kind::Text: {
      const auto texts = host_->reachableTexts();
      const bool found = std::find(texts.begin(), texts.end(), c.subject) != texts.end();
      return {found != c.negated, shownTexts(texts, "no text on the screen")};
    }
    case Condition::Kind::Log: {
      std::lock_guard lock(mutex_);
      // Only what the SDK said: "check log \"500\"" must not find the stamp of [5:00.0].
      const bool found = std::any_of(log_.begin(), log_.end(), [&c](const std::string& line) {
        return line.find(c.subject, line.find("] ") + 2) != std::string::npos;
      });
      return {found != c.negated, log_.empty() ? "the log is empty" : "last log line: " + log_.back()};
    }
    case Condition::Kind::GameEvents:
    case Condition::Kind::InputEvents: {
      const bool game = c.kind == Condition::Kind::GameEvents;
      const EventFileContents contents = eventFile(game ? _gameEventFilename : _inputEventFilename);
      const auto count = static_cast<std::int64_t>(game ? contents.gameEvents.size() : contents.inputRecords.size());
      return {c.count.holds(count), std::to_string(count) + " records in the file"};
    }
    case Condition::Kind::Uploads: {
      if (!server_) fail(2, "uploads: only the run's own service counts them, not one given by --service");
      std::int64_t count = 0;
      std::map<std::string, int> byStatus;
      for (const auto& request : server_->requests()) {
        if (request.method != "PUT") continue;
        const std::string status = request.dropped ? "dropped" : std::to_string(request.status);
        ++byStatus[status];
        if (c.subject == "any" || c.subject == status) ++count;
      }
      std::string there;
      for (const auto& [status, n] : byStatus) there += (there.empty() ? "" : ", ") + std::to_string(n) + " x " + status;
      return {c.count.holds(count), there.empty() ? "no upload so far" : "uploads so far: " + there};
    }
    case Condition::Kind::Exit: {
      const auto status = sim_ ? sim_->exitStatus() : std::nullopt;
      const bool holds = c.subject == "none" ? !status : status == c.count.value;
      return {holds, status ? "exit(" + std::to_string(*status) + ") recorded" : "no exit recorded"};
    }
  }
  return {false, ""};
}

void SessionRun::perform(const step::InitialiseOverlay& s) { sdk().initialiseOverlay(game_, s.token); }

void SessionRun::perform(const step::Validate&) {
  sdk().validate([this](bool ok) {
    const bool onMain = std::this_thread::get_id() == mainThread_;
    tell(std::string("the game hears ") + (ok ? "yes" : "no") + (onMain ? " on the main thread" : " on a background queue"));
  });
}

void SessionRun::perform(const step::Launch& s) {
  LaunchUrlValues values;
  values.scheme = script_.setting.urlSchemes.empty() ? "tavreldemo" : script_.setting.urlSchemes.front();
  values.launchToken = s.token.value_or("");
  if (s.gameEventPath) values.gameEventUrl = serviceUrl() + *s.gameEventPath;
  if (s.inputEventPath) values.inputEventUrl = serviceUrl() + *s.inputEventPath;
  if (s.gameEventPath || s.inputEventPath || s.recordingStartedAt) {
    values.recordingStartedAt = s.recordingStartedAt.value_or(platform_->currentMilliseconds());
  }
  std::string url;
  try {
    url = composeLaunchUrl(values);
  } catch (const std::invalid_argument& e) {
    fail(2, std::string("cannot compose the launch URL: ") + e.what());
  }
  tell("a launch URL arrives" + std::string(s.gameEventPath || s.inputEventPath ? " with upload URLs" : ""));
  sdk().processUrlRequest(url);
}

void SessionRun::perform(const step::GameEvent& s) {
  sdk().emitGameEvent(s.data, s.name);
  ++gameEventsEmitted_;
}

void SessionRun::perform(const step::FingerDown& s) {
  if (fingers_.count(s.finger)) fail(2, "finger " + std::to_string(s.finger) + " is already down");
  fingers_[s.finger] = FingerState{s.at, {}, 0, 0, false};
  host_->fingersDown({{hostFinger(s.finger), s.at}});
}

void SessionRun::perform(const step::FingerMove& s) {
  const auto it = fingers_.find(s.finger);
  if (it == fingers_.end()) fail(2, "finger " + std::to_string(s.finger) + " is not down");
  FingerState& finger = it->second;
  finger.path = {finger.at};
  finger.path.insert(finger.path.end(), s.path.begin(), s.path.end());
  finger.start = static_cast<double>(frameIndex_) / kFrameRate;
  finger.seconds = s.seconds;
  finger.moving = true;
}

void SessionRun::perform(const step::FingerUp& s) {
  const auto it = fingers_.find(s.finger);
  if (it == fingers_.end()) fail(2, "finger " + std::to_string(s.finger) + " is not down");
  const std::vector<Finger> finger{{hostFinger(s.finger), it->second.at}};
  fingers_.erase(it);
  const bool tookByToolkit = s.cancelled ? host_->fingersCancelled(finger) : host_->fingersUp(finger);
  if (!tookByToolkit) ++touchesToOverlay_;
}

void SessionRun::perform(const step::Tap& s) {
  if (!host_->tapElement(s.text)) {
    fail(1, "nothing on the screen shows " + quoted(s.text) + "; " + shownTexts(host_->reachableTexts(), "no text on the screen"));
  }
}

void SessionRun::perform(const step::Type& s) {
  if (!host_->typeText(s.text)) fail(1, "no field has the focus to type into");
}

void SessionRun::perform(const step::Return&) {
  if (!host_->pressReturn()) fail(1, "no field has the focus for Return");
}

void SessionRun::perform(const step::Backspace& s) {
  for (int i = 0; i < s.count; ++i) {
    if (!host_->pressBackspace()) fail(1, "no field has the focus for backspace");
  }
}

void SessionRun::perform(const step::At& s) {
  if (s.time + 1e-9 < now()) fail(2, "the session is already at " + sessionTime(now()));
  runUntil(s.time);
}

void SessionRun::perform(const step::WaitUntil& s) {
  const double deadline = now() + s.timeout;
  for (;;) {
    auto [holds, there] = evaluate(s.condition);
    if (holds) return;
    if (now() >= deadline) {
      fail(1, "wait-until " + s.condition.text() + ": not after " + sessionTime(s.timeout) + "; " + there);
    }
    runUntil(std::min(deadline, static_cast<double>(frameIndex_ + 1) / kFrameRate));
  }
}

void SessionRun::perform(const step::Check& s) {
  auto [holds, there] = evaluate(s.condition);
  if (!holds) fail(1, "check " + s.condition.text() + " failed; " + there);
  ++report_.checksPassed;
}

void SessionRun::perform(const step::Snapshot& s) {
  SnapshotRecord record{s.name, now(), out_ / "snapshots" / (s.name + ".png"), out_ / "snapshots" / (s.name + ".json")};
  if (!host_->writePNG(record.png.string())) fail(2, "cannot write " + record.png.string());
  writeText(record.tree, dumpViewTree() + "\n");
  report_.snapshots.push_back(record);
  tell("snapshot " + s.name);
}

void SessionRun::execute(const Step& step) {
  currentLine_ = step.line;
  std::visit([this](const auto& action) { perform(action); }, step.action);
}

void SessionRun::finishReport() {
  report_.sessionSeconds = now();
  // Stop the worker and the reply queue before reading what they wrote.
  if (sim_) sim_->shutdown();
  if (server_) server_->stop();
  {
    std::lock_guard lock(mutex_);
    std::stable_sort(story_.begin(), story_.end(), [](const StoryEntry& a, const StoryEntry& b) { return a.time < b.time; });
    report_.story = story_;
    report_.logLines = log_.size();
    std::string text;
    for (const auto& line : log_) text += line + "\n";
    writeText(out_ / "sdk.log", text);
  }
  report_.exitRecorded = exitSeen_;
  const auto requests = server_ ? server_->requests() : std::vector<endpoint::RecordedRequest>{};
  report_.requests = requests.size();
  report_.connections = server_ ? server_->connectionsAccepted() : 0;
  if (!server_) report_.otherService = options_.serviceUrl.value_or("");
  for (const auto& request : requests) {
    if (request.method == "PUT") {
      ++report_.uploadsByStatus[request.dropped ? "dropped" : std::to_string(request.status)];
      report_.bytesUploaded += request.bodySize;
    } else if (request.path == kValidatePath) {
      ++report_.validateRequests;
    } else if (request.path == kLoginPath) {
      ++report_.loginRequests;
    }
  }
  std::vector<std::pair<std::string, EventFileContents>> recorded;
  const auto summarize = [&](const char* label, const SessionString& name, const SessionString& url,
                             std::int64_t emitted) {
    EventFileSummary summary;
    summary.label = label;
    summary.emitted = emitted;
    const auto file = name.get();
    if (!file) return summary;
    summary.path = out_ / "documents" / *file;
    std::error_code missing;
    summary.created = fs::exists(summary.path, missing);
    std::string error;
    const auto bytes = readBinaryFile(summary.path.string(), error);
    if (!bytes) return summary;
    EventFileContents contents = readEventFile(*bytes);
    summary.bytes = bytes->size();
    summary.written = static_cast<std::int64_t>(contents.gameEvents.size() + contents.inputRecords.size());
    summary.wellFormed = contents.wellFormed();
    for (const auto& request : requests) {
      if (request.method != "PUT" || request.dropped || request.status / 100 != 2) continue;
      if (url.get().value_or("").find(request.target) == std::string::npos) continue;
      const auto copy = readBinaryFile((out_ / "received" / endpoint::HttpsServer::uploadFileName(request.path)).string(), error);
      summary.sameAsLastUpload = copy && *copy == *bytes;
    }
    recorded.emplace_back(summary.path.filename().string(), std::move(contents));
    return summary;
  };
  report_.files.push_back(summarize("game events", _gameEventFilename, _gameEventUrl, gameEventsEmitted_));
  report_.files.push_back(summarize("input events", _inputEventFilename, _inputEventUrl, touchesToOverlay_));
  const CGSize screen = script_.setting.screen;
  plot_ = makeEventPlot(recorded, {std::min(screen.width, screen.height), std::max(screen.width, screen.height)});
}

// Where a set-up error points: the setting that asked for it, else the first action.
int SessionRun::setupLine(const char* setting) const {
  if (const auto it = script_.setting.lines.find(setting); it != script_.setting.lines.end()) return it->second;
  return script_.steps.empty() ? 1 : script_.steps.front().line;
}

// The real platform's exit ends the process in the middle of a step: the report is written on
// the way out, as after the last step.
void SessionRun::exitedWith(int status, void*) {
  if (playing == nullptr) return;
  SessionRun& self = *std::exchange(playing, nullptr);
  self.exitSeen_ = status;
  self.tell("the process ends now with exit(" + std::to_string(status) + ")");
  self.report_.exitStatus = status;
  self.report_.failure = self.options_.scriptName + ":" + std::to_string(self.currentLine_) +
                         ": the game ended the process with exit(" + std::to_string(status) + ")";
  self.conclude();
}

int SessionRun::run() {
  wallStart_ = SteadyClock::now();
  cpuStart_ = cpuSeconds();
  report_.script = options_.scriptName;
  report_.realtime = options_.realtime;
  try {
    prepareOutput(out_);
  } catch (const fs::filesystem_error& e) {
    // No folder to hold the report: nothing of the session can be kept.
    std::cerr << options_.scriptName << ": --out: " << e.what() << "\n";
    return 2;
  }
  if (options_.realtime) {
    static const bool registered = ::on_exit(&SessionRun::exitedWith, nullptr) == 0;
    if (registered) playing = this;
  }
  try {
    currentLine_ = setupLine("service");
    startService();
    currentLine_ = setupLine("url-schemes");
    startPlatform();
    // Serving starts once the platform is in place: the server's threads read its clock.
    if (server_) server_->start();
    platform_->setServiceBaseUrlForTesting(serviceUrl());
    currentLine_ = setupLine("screen");
    startScreen();
    for (const Step& step : script_.steps) execute(step);
  } catch (const RunFailure& failure) {
    report_.exitStatus = failure.status;
    report_.failure = options_.scriptName + ":" + std::to_string(failure.line) + ": " + failure.message;
  } catch (const std::exception& e) {
    report_.exitStatus = 2;
    report_.failure = options_.scriptName + ":" + std::to_string(currentLine_) + ": " + e.what();
  }
  playing = nullptr;
  return conclude();
}

int SessionRun::conclude() {
  if (!report_.failure.empty()) tellAt(clock_ ? now() : 0, "stopped: " + report_.failure);
  if (platform_ && window_) {
    finishReport();
  } else if (server_) {
    server_->stop();
  }
  try {
    writeContactSheet(report_, out_ / "contact-sheet.png", plot_ ? &*plot_ : nullptr);
  } catch (const std::exception& e) {
    report_.exitStatus = 2;
    report_.failure = options_.scriptName + ": " + e.what();
  }
  report_.wallSeconds = std::chrono::duration<double>(SteadyClock::now() - wallStart_).count();
  report_.cpuSeconds = cpuSeconds() - cpuStart_;
  const std::string text = reportText(report_);
  writeText(out_ / "report.txt", text);
  writeText(out_ / "report.json", reportJson(report_).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
  std::cout << text << std::flush;
  if (!report_.failure.empty()) std::cerr << report_.failure << "\n";
  return report_.exitStatus;
}

}  // namespace

int runSessionScript(const SessionScript& script, const RunOptions& options) {
  return SessionRun(script, options).run();
}

}  // namespace tavrel::cli
