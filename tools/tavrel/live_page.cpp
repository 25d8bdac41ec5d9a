#include "live_page.hpp"

#include "event_files.hpp"
#include "event_plot.hpp"

#include "backend/validation.hpp"
#include "platform/files.hpp"

#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tavrel::cli {

extern const char* const kPageHtml;
extern const char* const kPageCss;
extern const char* const kPageScript;

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxRequests = 200;
constexpr std::size_t kMaxMessages = 400;
constexpr std::size_t kMaxRecordings = 24;
constexpr std::size_t kMaxTableRows = 200;
constexpr auto kHeartbeat = std::chrono::seconds(5);
constexpr CGSize kPagePlotSize{1000, 640};

std::int64_t wallMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string dumped(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

// The page's own requests, and the icon a browser asks for beside it.
bool isPageRoute(const endpoint::RecordedRequest& request) {
  return request.method == "GET" &&
         (request.path == "/" || request.path == "/favicon.ico" || request.path.rfind("/page/", 0) == 0);
}

// The service's answer as the page tells it: a reply body is the service's own
// ({"valid":...} or {"authed":...}), never the client's token or password.
std::pair<std::string, bool> outcome(const endpoint::RecordedRequest& request, const char* key, const char* yes,
                                     const char* unknown) {
  if (request.dropped) return {"dropped", false};
  const json reply = json::parse(request.replyBody, nullptr, false);
  if (request.status == 200 && reply.is_object() && reply.contains(key) && reply[key].is_boolean()) {
    return reply[key].get<bool>() ? std::pair<std::string, bool>{yes, true} : std::pair<std::string, bool>{"refused", false};
  }
  if (request.status == 401) return {unknown, false};
  return {"not understood", false};
}

json requestRow(const endpoint::RecordedRequest& request) {
  std::string what = "request";
  std::pair<std::string, bool> result;
  if (request.path == kValidatePath) {
    what = "token check";
    result = outcome(request, "valid", "accepted", "unknown token");
  } else if (request.path == kLoginPath) {
    what = "login";
    result = outcome(request, "authed", "logged in", "unknown user or password");
  } else if (request.method == "PUT") {
    what = "upload";
    result = request.dropped                               ? std::pair<std::string, bool>{"dropped", false}
             : request.status >= 200 && request.status < 300 ? std::pair<std::string, bool>{"stored", true}
                                                             : std::pair<std::string, bool>{"refused", false};
  } else {
    result = {request.dropped ? "dropped" : request.method, !request.dropped && request.status < 400};
  }
  return {{"time", wallMilliseconds()},
          {"what", what},
          {"path", request.path},
          {"status", request.dropped ? json("dropped") : json(request.status)},
          {"ok", result.second},
          {"outcome", result.first},
          {"bytes", request.bodySize}};
}

std::string folderOf(const std::string& path) { return path.substr(0, path.find_last_of('/') + 1); }

}  // namespace

struct LivePage::State {
  struct Upload {
    std::string body;
    std::int64_t time = 0;
  };
  struct Recording {
    std::uint64_t id = 0;
    std::uint64_t version = 0;
    std::int64_t time = 0;
    EventFileKind kind = EventFileKind::Unknown;
    std::string png;
    json card;
  };

  State();
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  CGSize screen;
  std::mutex mutex;
  std::condition_variable changed;
  bool closed = false;
  int streams = 0;
  std::uint64_t sequence = 0;
  std::deque<std::pair<std::uint64_t, std::string>> messages;  // the latest events, ready to send
  std::deque<json> requests;
  std::map<std::string, Upload> uploads;  // waiting for refresh(), the latest per URL
  // By URL path. Written by refresh() alone, under the mutex; refresh() reads it without.
  std::map<std::string, Recording> recordings;
  std::uint64_t nextId = 1;
  // The latest file of each recording, named by its id: on disk, and decoded only to be drawn,
  // so that the files of a long session, growing with it, do not grow the server's memory.
  std::string directory;

  std::string fileOf(const Recording& recording) const {
    return appendingPathComponent(directory, std::to_string(recording.id));
  }
  EventFileContents contentsOf(const Recording& recording) const {
    return readEventFile(readWholeFile(fileOf(recording)).data);
  }

  // With the mutex held.
  void publish(const char* event, const json& data) {
    messages.emplace_back(++sequence, std::string("event: ") + event + "\ndata: " + dumped(data) + "\n\n");
    if (messages.size() > kMaxMessages) messages.pop_front();
    changed.notify_all();
  }
  std::string snapshot() const { return "event: state\ndata: " + everything() + "\n\n"; }
  std::string everything() const {
    json cards = json::array();
    for (const auto& [url, recording] : recordings) cards.push_back(recording.card);
    return dumped({{"requests", requests}, {"recordings", cards}});
  }

  void redraw(const std::string& url, Recording& recording, EventFileContents contents) const;
};

LivePage::State::State() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/tavrel-page-XXXXXX";
  if (::mkdtemp(pattern.data()) != nullptr) directory = std::move(pattern);
}

LivePage::State::~State() {
  std::error_code ignored;
  if (!directory.empty()) std::filesystem::remove_all(directory, ignored);
}

// The card of one upload URL, and the plot of an input file with the game events of the latest
// game file beside it (a session's uploads share their folder).
void LivePage::State::redraw(const std::string& url, Recording& recording, EventFileContents contents) const {
  json problems = json::array();
  for (const auto& problem : contents.problems) problems.push_back(describeProblem(problem));
  json events = json::array();
  const std::size_t skipped = contents.gameEvents.size() > kMaxTableRows ? contents.gameEvents.size() - kMaxTableRows : 0;
  for (std::size_t i = skipped; i < contents.gameEvents.size(); ++i) {
    const GameEvent& event = contents.gameEvents[i];
    events.push_back({{"t", event.t}, {"e", event.e}, {"a", event.a}});
  }
  recording.card = {{"url", url},
                    {"kind", eventFileKindName(contents.kind)},
                    {"bytes", contents.size},
                    {"time", recording.time},
                    {"summary", eventCountSummary(contents) + (contents.wellFormed() ? "" : ", MALFORMED")},
                    {"problems", problems},
                    {"events", events},
                    {"eventsTotal", contents.gameEvents.size()},
                    {"plot", nullptr}};
  recording.png.clear();
  if (contents.kind != EventFileKind::Input) return;
  const std::pair<const std::string, Recording>* game = nullptr;
  for (const auto& entry : recordings) {
    if (entry.second.kind == EventFileKind::Game && folderOf(entry.first) == folderOf(url) &&
        (game == nullptr || entry.second.time > game->second.time)) {
      game = &entry;
    }
  }
  std::vector<std::pair<std::string, EventFileContents>> files;
  files.emplace_back(url, std::move(contents));
  if (game != nullptr) files.emplace_back(game->first, contentsOf(game->second));
  recording.png = eventPlotPng(makeEventPlot(files, screen), kPagePlotSize);
  recording.card["plot"] = "/page/plot.png?id=" + std::to_string(recording.id) + "&v=" + std::to_string(recording.version);
}

namespace {

// One page's stream: everything first, then what comes, and a comment now and then so that a
// connection that died unnoticed is found out.
class Stream {
 public:
  explicit Stream(std::shared_ptr<LivePage::State> state);
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  bool next(const std::function<bool(std::string_view)>& write);

 private:
  std::shared_ptr<LivePage::State> state_;
  bool started_ = false;
  std::uint64_t sent_ = 0;
  Clock::time_point lastWrite_ = Clock::now();
};

}  // namespace

Stream::Stream(std::shared_ptr<LivePage::State> state) : state_(std::move(state)) {}

Stream::~Stream() {
  std::lock_guard lock(state_->mutex);
  --state_->streams;
}

bool Stream::next(const std::function<bool(std::string_view)>& write) {
  LivePage::State& s = *state_;
  std::string out;
  {
    std::unique_lock lock(s.mutex);
    if (!started_) {
      out = "retry: 2000\n\n" + s.snapshot();
      started_ = true;
    } else {
      // Short: between two calls the server looks whether the page has gone, and frees its slot.
      s.changed.wait_for(lock, std::chrono::milliseconds(250), [&] { return s.closed || s.sequence > sent_; });
      if (s.closed) return false;
      if (s.sequence > sent_) {
        // Fell behind the kept events: everything again.
        if (s.messages.empty() || s.messages.front().first > sent_ + 1) {
          out = s.snapshot();
        } else {
          for (const auto& [number, message] : s.messages) {
            if (number > sent_) out += message;
          }
        }
      }
    }
    sent_ = s.sequence;
  }
  if (out.empty()) {
    if (Clock::now() - lastWrite_ < kHeartbeat) return true;
    out = ": still here\n\n";
  }
  lastWrite_ = Clock::now();
  return write(out);
}

LivePage::LivePage(CGSize screen) : state_(std::make_shared<State>()) { state_->screen = screen; }

LivePage::~LivePage() { close(); }

void LivePage::install(endpoint::HttpsServer& server) {
  const auto file = [](const char* text, const char* type) {
    return [text, type](const endpoint::RecordedRequest&) { return endpoint::Reply{200, text, type}; };
  };
  server.addRoute("GET", "/page/style.css", file(kPageCss, "text/css; charset=utf-8"));
  server.addRoute("GET", "/page/app.js", file(kPageScript, "text/javascript; charset=utf-8"));
  server.addRoute("GET", "/favicon.ico", [](const endpoint::RecordedRequest&) { return endpoint::Reply{204, {}, {}}; });
  std::shared_ptr<State> state = state_;
  // The page comes with everything so far, so that it shows it at once, without its script
  // waiting for the stream.
  server.addRoute("GET", "/", [state](const endpoint::RecordedRequest&) {
    static constexpr std::string_view kSlot = "type=\"application/json\">null<";
    std::string html = kPageHtml;
    std::string data;
    {
      std::lock_guard lock(state->mutex);
      data = state->everything();
    }
    // A "<" only ever stands in a string here, where "</script" or "<!--" would end the element early.
    for (std::size_t at = 0; (at = data.find('<', at)) != std::string::npos;) data.replace(at, 1, "\\u003c");
    const auto slot = html.find(kSlot);
    if (slot != std::string::npos) html.replace(slot + kSlot.size() - 5, 4, data);
    return endpoint::Reply{200, html, "text/html; charset=utf-8"};
  });
  server.addRoute("GET", "/page/events", [state](const endpoint::RecordedRequest&) {
    {
      std::lock_guard lock(state->mutex);
      if (state->closed || state->streams >= kMaxStreams) {
        return endpoint::Reply{503, "too many pages open", "text/plain"};
      }
      ++state->streams;
    }
    auto stream = std::make_shared<Stream>(state);
    endpoint::Reply reply{200, {}, "text/event-stream"};
    reply.stream = [stream](const std::function<bool(std::string_view)>& write) { return stream->next(write); };
    return reply;
  });
  server.addRoute("GET", "/page/plot.png", [state](const endpoint::RecordedRequest& request) {
    const auto query = request.target.find("?id=");
    const std::string id = query == std::string::npos ? "" : request.target.substr(query + 4);
    std::lock_guard lock(state->mutex);
    for (const auto& [url, recording] : state->recordings) {
      if (!recording.png.empty() && id.substr(0, id.find('&')) == std::to_string(recording.id)) {
        return endpoint::Reply{200, recording.png, "image/png"};
      }
    }
    return endpoint::Reply{404, "no such plot", "text/plain"};
  });
}

void LivePage::record(const endpoint::RecordedRequest& request) {
  if (isPageRoute(request)) return;
  const json row = requestRow(request);
  std::lock_guard lock(state_->mutex);
  state_->requests.push_back(row);
  if (state_->requests.size() > kMaxRequests) state_->requests.pop_front();
  state_->publish("request", row);
  if (request.method == "PUT" && row["ok"].get<bool>()) {
    state_->uploads[request.path] = {request.body, row["time"].get<std::int64_t>()};
  }
}

bool LivePage::refresh() {
  State& s = *state_;
  std::map<std::string, State::Upload> uploads;
  {
    std::lock_guard lock(s.mutex);
    uploads.swap(s.uploads);
  }
  for (auto& [url, upload] : uploads) {
    // Decoded and drawn outside the lock: only this thread changes the recordings.
    const auto found = s.recordings.find(url);
    State::Recording recording;  // its id and version only: the old card and picture are not copied
    if (found != s.recordings.end()) {
      recording.id = found->second.id;
      recording.version = found->second.version;
    }
    EventFileContents contents = readEventFile(upload.body);
    recording.kind = contents.kind;
    recording.time = upload.time;
    ++recording.version;
    {
      std::lock_guard lock(s.mutex);
      if (recording.id == 0) recording.id = s.nextId++;
    }
    // For the plots that draw it again; one that cannot be written draws as an empty file.
    createFileAtPath(s.fileOf(recording), upload.body);
    upload.body = {};
    {
      std::lock_guard lock(s.mutex);
      s.recordings[url] = recording;
    }
    std::vector<std::pair<std::string, State::Recording>> changed;
    changed.emplace_back(url, std::move(recording));
    s.redraw(url, changed.back().second, std::move(contents));
    // A game file changes the time lines of its folder's plots.
    if (changed.front().second.kind == EventFileKind::Game) {
      for (const auto& [other, mate] : s.recordings) {
        if (mate.kind == EventFileKind::Input && folderOf(other) == folderOf(url)) {
          changed.emplace_back(other, mate);
          ++changed.back().second.version;
          s.redraw(other, changed.back().second, s.contentsOf(mate));
        }
      }
    }
    std::lock_guard lock(s.mutex);
    for (auto& [path, r] : changed) {
      s.publish("recording", r.card);
      s.recordings[path] = std::move(r);
    }
    while (s.recordings.size() > kMaxRecordings) {
      auto oldest = s.recordings.begin();
      for (auto it = s.recordings.begin(); it != s.recordings.end(); ++it) {
        if (it->second.time < oldest->second.time) oldest = it;
      }
      s.publish("forget", {{"url", oldest->first}});
      std::error_code ignored;
      std::filesystem::remove(s.fileOf(oldest->second), ignored);
      s.recordings.erase(oldest);
    }
  }
  return !uploads.empty();
}

void LivePage::close() {
  std::lock_guard lock(state_->mutex);
  state_->closed = true;
  state_->changed.notify_all();
}

}  // namespace tavrel::cli
