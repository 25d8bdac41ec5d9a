// tavrel demo: a supervised session from launch URL to uploaded event files, with nothing to set
// up. An upload endpoint runs in the process (HTTPS on 127.0.0.1), a launch URL carrying its two
// upload URLs goes to the SDK, a scripted game and a few fingers emit events for some minutes,
// and the upload worker sends the files. By default the session runs in virtual time on the
// simulated platform, so minutes take seconds; --realtime runs it on the real clock.

#include "commands.hpp"
#include "event_files.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>

#include "endpoint/https_server.hpp"
#include "platform/sim_platform.hpp"
#include "session/launch_url.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace tavrel::cli {
namespace {

namespace fs = std::filesystem;

constexpr int kFramesPerSecond = 60;
constexpr double kUploadPeriod = 30.0;
constexpr const char* kGameUploadPath = "/game-events.evt";
constexpr const char* kInputUploadPath = "/input-events.evt";

struct Options {
  double minutes = 3;
  std::string out = "tavrel-demo-out";
  bool realtime = false;
  int fingers = 3;
  std::uint64_t seed = 1;
  bool flaky = false;
  bool verbose = false;
};

// The session's time: the simulation's virtual clock, or the wall clock.
class SessionClock {
 public:
  virtual ~SessionClock() = default;
  virtual double elapsed() = 0;  // seconds since the session started
  virtual void waitUntil(double seconds) = 0;
};

class VirtualClock final : public SessionClock {
 public:
  explicit VirtualClock(SimPlatform& sim) : sim_(sim), origin_(sim.elapsed()) {}
  double elapsed() override { return sim_.elapsed() - origin_; }
  // Moving time runs every pass and upload that falls due on the way.
  void waitUntil(double seconds) override { sim_.advance(std::max(0.0, seconds - elapsed())); }

 private:
  SimPlatform& sim_;
  double origin_;
};

class WallClock final : public SessionClock {
 public:
  double elapsed() override { return std::chrono::duration<double>(std::chrono::steady_clock::now() - origin_).count(); }
  void waitUntil(double seconds) override {
    std::this_thread::sleep_until(origin_ + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                std::chrono::duration<double>(seconds)));
  }

 private:
  std::chrono::steady_clock::time_point origin_ = std::chrono::steady_clock::now();
};

// A finger that touches down, moves along a curve for a while, lifts, and rests.
struct Finger {
  std::int32_t markIndex = 0;
  bool down = false;
  int framesLeft = 0;
  double x = 0, y = 0, heading = 0, speed = 0;  // position and velocity in 0..1 of the screen
};

// The game and the player: what they emit at each frame of the session.
class Script {
 public:
  Script(int fingers, std::uint64_t seed) : random_(static_cast<std::mt19937::result_type>(seed)) {
    for (int i = 0; i < fingers; ++i) {
      fingers_.push_back({i, false, uniformFrames(0.1, 1.5), 0, 0, 0, 0});
    }
  }

  void frame(std::int64_t n, TavrelSDK& sdk) {
    if (n % (60 * kFramesPerSecond) == 0) {
      ++level_;
      emitGame(sdk, "level-start", "level-" + std::to_string(level_));
    }
    if (n == 10 * kFramesPerSecond) emitGame(sdk, "player-name", "Zo\xC3\xAB");  // written escaped, as \u00eb
    if (n > 0 && std::uniform_int_distribution<int>(0, 3 * kFramesPerSecond)(random_) == 0) {
      static const char* const kActions[] = {"jump", "coin", "hit", "power-up", "checkpoint"};
      emitGame(sdk, kActions[std::uniform_int_distribution<int>(0, 4)(random_)], "level-" + std::to_string(level_));
    }
    for (Finger& finger : fingers_) step(finger, sdk);
  }

  std::int64_t gameEventsEmitted() const { return gameEvents_; }
  std::int64_t inputEventsEmitted() const { return inputEvents_; }

 private:
  int uniformFrames(double minSeconds, double maxSeconds) {
    return static_cast<int>(std::uniform_real_distribution<double>(minSeconds, maxSeconds)(random_) * kFramesPerSecond);
  }

  void step(Finger& f, TavrelSDK& sdk) {
    if (!f.down) {
      if (--f.framesLeft > 0) return;
      std::uniform_real_distribution<double> unit(0.1, 0.9);
      f = {f.markIndex, true, uniformFrames(0.3, 3.0), unit(random_), unit(random_),
           unit(random_) * 2 * std::numbers::pi, 0.2 + unit(random_) * 0.5};
    }
    if (--f.framesLeft <= 0) {
      emitInput(sdk, {3, 0, 7, f.markIndex});
      f.down = false;
      f.framesLeft = uniformFrames(0.2, 2.0);
      return;
    }
    f.heading += std::uniform_real_distribution<double>(-0.15, 0.15)(random_);
    f.x = std::clamp(f.x + std::cos(f.heading) * f.speed / kFramesPerSecond, 0.0, 1.0);
    f.y = std::clamp(f.y + std::sin(f.heading) * f.speed / kFramesPerSecond, 0.0, 1.0);
    if (f.x <= 0.0 || f.x >= 1.0 || f.y <= 0.0 || f.y >= 1.0) f.heading += std::numbers::pi / 2;
    emitInput(sdk, {6, 0, 6, f.markIndex, static_cast<std::int32_t>(f.x * 65535),
                    static_cast<std::int32_t>(f.y * 65535), 0});
  }

  void emitGame(TavrelSDK& sdk, const std::string& data, const std::string& name) {
    sdk.emitGameEvent(data, name);
    ++gameEvents_;
  }
  void emitInput(TavrelSDK& sdk, const std::vector<std::int32_t>& event) {
    sdk.emitInputEvent(event);
    ++inputEvents_;
  }

  std::mt19937 random_;
  std::vector<Finger> fingers_;
  int level_ = 0;
  std::int64_t gameEvents_ = 0;
  std::int64_t inputEvents_ = 0;
};

// SDK log lines, stamped with session time, kept for sdk.log and echoed with --verbose.
class LogCollector {
 public:
  LogCollector(SessionClock& clock, bool echo) : clock_(clock), echo_(echo), tty_(::isatty(STDERR_FILENO) == 1) {}
  void add(std::string_view message) {
    char stamp[32];
    const double t = clock_.elapsed();
    std::snprintf(stamp, sizeof stamp, "[%d:%06.3f] ", static_cast<int>(t / 60), std::fmod(t, 60.0));
    std::string line = stamp + std::string(message);
    std::lock_guard lock(mutex_);
    if (echo_) std::cerr << (tty_ ? "\r\033[K" : "") << line << "\n";
    lines_.push_back(std::move(line));
  }
  std::vector<std::string> lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  SessionClock& clock_;
  bool echo_;
  bool tty_;
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

std::string minutesAndSeconds(double seconds) {
  char text[32];
  const auto whole = static_cast<long>(seconds);
  std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  return text;
}

std::string groupDigits(std::int64_t n) {
  std::string digits = std::to_string(n < 0 ? -n : n);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) digits.insert(static_cast<std::size_t>(i), ",");
  return n < 0 ? "-" + digits : digits;
}

// "1 upload", "12 uploads", "1,085 touches"
std::string counted(std::int64_t n, const char* singular, const char* plural) {
  return groupDigits(n) + " " + (n == 1 ? singular : plural);
}

// Every upload seen by the endpoint, by outcome.
std::map<std::string, int> uploadsByStatus(const std::vector<endpoint::RecordedRequest>& requests) {
  std::map<std::string, int> counts;
  for (const auto& request : requests) ++counts[request.dropped ? "no reply" : std::to_string(request.status)];
  return counts;
}

struct FileOutcome {
  std::string label;     // "game event file"
  std::string local;     // in Documents
  std::string received;  // the endpoint's last copy
  std::size_t bytes = 0;
  std::int64_t emitted = 0;
  std::int64_t written = 0;
  bool wellFormed = false;
  bool identical = false;
  std::string note;
};

FileOutcome compareFile(const std::string& label, const std::optional<std::string>& name, const fs::path& documents,
                        const fs::path& received, std::int64_t emitted) {
  FileOutcome outcome;
  outcome.label = label;
  outcome.emitted = emitted;
  outcome.received = received.string();
  if (!name) {
    outcome.note = "no file was named";
    return outcome;
  }
  outcome.local = (documents / *name).string();
  std::string error;
  const auto local = readBinaryFile(outcome.local, error);
  if (!local) {
    outcome.note = "not on disk: " + error;
    return outcome;
  }
  const EventFileContents contents = readEventFile(*local);
  outcome.bytes = local->size();
  outcome.wellFormed = contents.wellFormed();
  outcome.written = static_cast<std::int64_t>(contents.gameEvents.size() + contents.inputRecords.size());
  const auto copy = readBinaryFile(outcome.received, error);
  if (!copy) {
    outcome.note = "the endpoint has no copy";
  } else {
    outcome.identical = *copy == *local;
    if (!outcome.identical) {
      outcome.note = "the last copy received has " + groupDigits(static_cast<std::int64_t>(copy->size())) + " bytes";
    }
  }
  if (!outcome.wellFormed) outcome.note += (outcome.note.empty() ? "" : "; ") + std::string("malformed");
  return outcome;
}

struct Report {
  double sessionSeconds = 0;
  double wallSeconds = 0;
  bool realtime = false;
  int fingers = 0;
  std::string launchUrl;
  std::vector<FileOutcome> files;
  std::map<std::string, int> uploads;
  std::uint64_t bytesSent = 0;
  std::size_t logLines = 0;
  fs::path out;

  bool allIdentical() const {
    return std::all_of(files.begin(), files.end(), [](const FileOutcome& f) { return f.identical && f.wellFormed; });
  }
};

std::string renderReport(const Report& r) {
  std::ostringstream out;
  char wall[32];
  std::snprintf(wall, sizeof wall, "%.1f", r.wallSeconds);
  out << "tavrel demo: a supervised session of " << minutesAndSeconds(r.sessionSeconds)
      << (r.realtime ? " in real time" : " in virtual time") << " (" << wall << " s of wall time)\n";
  out << "  launch URL     " << r.launchUrl << "\n";
  const FileOutcome& game = r.files[0];
  const FileOutcome& input = r.files[1];
  out << "  game events    " << groupDigits(game.emitted) << " emitted, " << groupDigits(game.written) << " written, "
      << groupDigits(game.emitted - game.written) << " dropped\n";
  out << "  input events   " << groupDigits(input.emitted) << " emitted by " << counted(r.fingers, "finger", "fingers")
      << " at " << kFramesPerSecond << " a second, " << groupDigits(input.written)
      << " written, " << groupDigits(input.emitted - input.written) << " dropped\n"
      << "                 (the rate limit keeps at most 5 in a run; a run ends 1 s after its last event)\n";
  int requests = 0;
  std::string byStatus;
  for (const auto& [status, count] : r.uploads) {
    requests += count;
    byStatus += (byStatus.empty() ? "" : ", ") + std::to_string(count) + " \xC3\x97 " + status;
  }
  out << "  uploads        " << counted(requests, "PUT request", "PUT requests")
      << (byStatus.empty() ? "" : ": " + byStatus) << "\n";
  out << "  bytes sent     " << groupDigits(static_cast<std::int64_t>(r.bytesSent)) << "\n";
  for (const FileOutcome& f : r.files) {
    out << "  " << f.label << std::string(f.label.size() < 18 ? 18 - f.label.size() : 1, ' ')
        << fs::relative(f.local.empty() ? r.out : fs::path(f.local), r.out).string() << ", " << groupDigits(static_cast<std::int64_t>(f.bytes))
        << " bytes: " << (f.identical ? "identical to the last copy received" : "NOT identical to the last copy received")
        << (f.note.empty() ? "" : " (" + f.note + ")") << "\n";
  }
  out << "  SDK log        " << counted(static_cast<std::int64_t>(r.logLines), "line", "lines") << " in sdk.log\n";
  out << "Written to " << r.out.string() << ": documents/ (the SDK's files), received/ (the endpoint's copies), "
      << "report.txt, report.json, sdk.log\n";
  out << "Look inside: tavrel inspect " << (r.out / "documents" / "*.evt").string() << "\n";
  out << (r.allIdentical() ? "OK: every file arrived whole.\n" : "FAILED: a file did not arrive whole.\n");
  return out.str();
}

nlohmann::json reportJson(const Report& r) {
  nlohmann::json files = nlohmann::json::array();
  for (const FileOutcome& f : r.files) {
    files.push_back({{"label", f.label}, {"path", f.local}, {"received", f.received}, {"bytes", f.bytes},
                     {"emitted", f.emitted}, {"written", f.written}, {"dropped", f.emitted - f.written},
                     {"wellFormed", f.wellFormed}, {"identical", f.identical}, {"note", f.note}});
  }
  return {{"sessionSeconds", r.sessionSeconds}, {"wallSeconds", r.wallSeconds}, {"realtime", r.realtime},
          {"fingers", r.fingers},               {"launchUrl", r.launchUrl},     {"files", files},
          {"uploads", r.uploads},               {"bytesSent", r.bytesSent},     {"sdkLogLines", r.logLines},
          {"ok", r.allIdentical()}};
}

// Makes out/, out/documents and out/received, clearing what an earlier demo left in the last two.
void prepareOutput(const fs::path& out) {
  fs::create_directories(out / "documents");
  fs::create_directories(out / "received");
  for (const auto& entry : fs::directory_iterator(out / "documents")) {
    if (entry.is_regular_file() && entry.path().extension() == ".evt") fs::remove(entry.path());
  }
  for (const auto& entry : fs::directory_iterator(out / "received")) {
    if (entry.is_regular_file()) fs::remove(entry.path());
  }
}

void writeText(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

class Progress {
 public:
  Progress(bool enabled, double total) : enabled_(enabled), tty_(::isatty(STDERR_FILENO) == 1), total_(total) {}

  void show(double now, const Script& script, const endpoint::HttpsServer& server, bool force = false) {
    if (!enabled_) return;
    // On a terminal one line is redrawn a few times a session-second; otherwise a line a pass.
    const double every = tty_ ? 1.0 : kUploadPeriod;
    if (!force && now < next_) return;
    next_ = (std::floor(now / every) + 1) * every;
    std::ostringstream line;
    line << "  " << minutesAndSeconds(now) << " / " << minutesAndSeconds(total_) << "   "
         << counted(script.gameEventsEmitted(), "game event", "game events") << " and "
         << counted(script.inputEventsEmitted(), "touch", "touches") << " emitted, "
         << counted(static_cast<std::int64_t>(server.requestCount()), "upload", "uploads");
    std::cerr << (tty_ ? "\r\033[K" : "") << line.str() << (tty_ ? "" : "\n") << std::flush;
  }
  void finish() {
    if (enabled_ && tty_) std::cerr << "\r\033[K" << std::flush;
  }

 private:
  bool enabled_;
  bool tty_;
  double total_;
  double next_ = 0;
};

int run(const Options& options) {
  if (!(options.minutes > 0) || options.minutes > 24 * 60) throw UsageError("--minutes: expected more than 0, at most 1440");
  if (options.fingers < 1 || options.fingers > 10) throw UsageError("--fingers: expected 1 to 10");
  const auto wallStart = std::chrono::steady_clock::now();
  const fs::path out = fs::absolute(options.out);
  prepareOutput(out);

  endpoint::HttpsServer::Options serverOptions;
  serverOptions.keepBodies = false;
  serverOptions.uploadsDirectory = (out / "received").string();
  endpoint::HttpsServer server(serverOptions);
  server.start();

  std::shared_ptr<SimPlatform> sim;
  std::shared_ptr<Platform> platform;
  std::unique_ptr<SessionClock> clock;
  if (options.realtime) {
    platform = Platform::makeLinux();
    clock = std::make_unique<WallClock>();
  } else {
    sim = SimPlatform::create({.seed = options.seed});
    platform = sim;
    clock = std::make_unique<VirtualClock>(*sim);
  }
  platform->setDocumentsDirectory((out / "documents").string());
  platform->setTrustedCertificatesFile(server.caFile());
  LogCollector log(*clock, options.verbose);
  platform->setLogToStderr(false);
  platform->setLogSink([&log](std::string_view message) { log.add(message); });
  Platform::install(platform);

  // What the companion app would send: a token and the endpoint's two upload URLs.
  LaunchUrlValues launch;
  launch.scheme = "tavreldemo";
  launch.launchToken = "demo-token-0000000000000demo-player-000000000001";
  launch.gameEventUrl = server.url(std::string(kGameUploadPath) + "?session=demo&sig=5f3a9c");
  launch.inputEventUrl = server.url(std::string(kInputUploadPath) + "?session=demo&sig=5f3a9c");
  launch.recordingStartedAt = platform->currentMilliseconds();
  Report report;
  report.launchUrl = composeLaunchUrl(launch);
  report.realtime = options.realtime;
  report.fingers = options.fingers;
  report.out = out;

  TavrelSDK& sdk = TavrelSDK::sharedInstance();
  sdk.processUrlRequest(report.launchUrl);

  const double total = options.minutes * 60.0;
  const auto frames = static_cast<std::int64_t>(std::llround(total * kFramesPerSecond));
  Script script(options.fingers, options.seed);
  Progress progress(true, total);
  std::cerr << "tavrel demo: " << minutesAndSeconds(total) << " of play"
            << (options.realtime ? " in real time" : " in virtual time") << ", uploads to " << server.baseUrl() << "\n";
  for (std::int64_t n = 0; n < frames; ++n) {
    const double t = static_cast<double>(n) / kFramesPerSecond;
    if (options.flaky && n == 65 * kFramesPerSecond) server.dropConnections(1);
    if (options.flaky && n == 125 * kFramesPerSecond) server.answerStatus(503, 1);
    clock->waitUntil(t);
    script.frame(n, sdk);
    progress.show(t, script, server);
  }
  clock->waitUntil(total);
  progress.show(total, script, server, true);

  // The worker sends what changed at its next pass; a 503 waits one pass more.
  const double deadline = total + 3 * kUploadPeriod;
  if (options.realtime && (_hasUpdatedGameEvents.load() || _hasUpdatedInputEvents.load())) {
    std::cerr << "  play over; waiting for the upload worker's next pass (at most 30 s)\n";
  }
  while ((_hasUpdatedGameEvents.load() || _hasUpdatedInputEvents.load()) && clock->elapsed() < deadline) {
    clock->waitUntil(clock->elapsed() + (options.realtime ? 0.1 : 1.0));
  }
  report.sessionSeconds = total;
  if (sim) sim->shutdown();  // stops the worker before the endpoint goes
  server.stop();
  progress.finish();

  const fs::path documents = out / "documents";
  const fs::path received = out / "received";
  report.files.push_back(compareFile("game event file", _gameEventFilename.get(), documents,
                                     received / endpoint::HttpsServer::uploadFileName(kGameUploadPath),
                                     script.gameEventsEmitted()));
  report.files.push_back(compareFile("input event file", _inputEventFilename.get(), documents,
                                     received / endpoint::HttpsServer::uploadFileName(kInputUploadPath),
                                     script.inputEventsEmitted()));
  const auto requests = server.requests();
  report.uploads = uploadsByStatus(requests);
  for (const auto& request : requests) report.bytesSent += request.bodySize;
  const auto lines = log.lines();
  report.logLines = lines.size();
  report.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();

  std::string sdkLog;
  for (const auto& line : lines) sdkLog += line + "\n";
  writeText(out / "sdk.log", sdkLog);
  const std::string text = renderReport(report);
  writeText(out / "report.txt", text);
  writeText(out / "report.json", reportJson(report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
  std::cout << text << std::flush;
  return report.allIdentical() ? 0 : 1;
}

}  // namespace

void addDemoCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "demo", "Run a supervised session against an upload endpoint in this process and report what arrived");
  command->add_option("--minutes", options->minutes, "length of play")->capture_default_str();
  command->add_option("--out", options->out, "directory for the files and the report")->capture_default_str();
  command->add_flag("--realtime", options->realtime, "run on the real clock instead of virtual time");
  command->add_option("--fingers", options->fingers, "fingers touching the screen, 1 to 10")->capture_default_str();
  command->add_option("--seed", options->seed, "seed of the scripted game and player")->capture_default_str();
  command->add_flag("--flaky", options->flaky, "make the endpoint drop one upload and refuse another");
  command->add_flag("--verbose", options->verbose, "echo the SDK's log lines as they come");
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
