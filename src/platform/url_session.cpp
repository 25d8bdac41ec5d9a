#include "platform/url_session.hpp"

#include "platform/files.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tavrel {
namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return (x >= 'A' && x <= 'Z' ? x + 32 : x) == (y >= 'A' && y <= 'Z' ? y + 32 : y);
         });
}

bool isTokenChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenChar);
}

// A header value may not end a line early: that would smuggle in headers of its own.
bool isHeaderValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

// Idle connections kept for reuse, across hosts. The library talks to two hosts (the service and
// the uploads'), a handful of requests at a time.
constexpr long kIdleConnections = 16;

// A body that grows past this with a limit set has room made for the whole limit at once.
constexpr std::size_t kSmallBody = 64 * 1024;

// The I/O thread's longest wait: libcurl's own timers and wake-ups cut it short.
constexpr int kLongestPollMilliseconds = 5000;

struct Task {
  UrlRequest request;
  DataTaskHandler handler;
  std::string caFile;
  Platform* platform = nullptr;
  bool resent = false;  // once, after a reused connection turned out dead
  bool tooLarge = false;
  int redirects = 0;
  double lastActivity = 0;  // on the platform's network clock
  curl_off_t bytesMoved = 0;
  UrlResponse response;
  std::unique_ptr<CURL, EasyDeleter> easy;
  std::unique_ptr<curl_slist, SlistDeleter> headers;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  bool names(std::string_view header) const {
    return std::any_of(request.headers.begin(), request.headers.end(),
                       [&](const auto& h) { return equalsIgnoringCase(h.first, header); });
  }

  bool appendHeader(const std::string& line) {
    curl_slist* grown = curl_slist_append(headers.get(), line.c_str());
    if (grown == nullptr) return false;
    headers.release();
    headers.reset(grown);
    return true;
  }
};

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* context) {
  auto& task = *static_cast<Task*>(context);
  const std::size_t bytes = size * count;
  if (!task.request.keepsResponseBody) return bytes;
  if (task.request.maxResponseBytes && task.response.data.size() + bytes > *task.request.maxResponseBytes) {
    task.tooLarge = true;
    return 0;  // libcurl stops the transfer here: nothing more is read
  }
  std::string& body = task.response.data;
  if (task.request.maxResponseBytes && body.size() + bytes > body.capacity() && body.size() + bytes > kSmallBody) {
    // The limit at once, not doubling past it with the old buffer still held: a body near the
    // limit then costs what it holds (pages untouched stay unmapped), not twice as much.
    body.reserve(*task.request.maxResponseBytes);
  }
  body.append(data, bytes);
  return bytes;
}

// The transfer's options; an error text when the request cannot be sent as it stands.
std::optional<std::string> configure(Task& task) {
  CURL* easy = task.easy.get();
  const UrlRequest& request = task.request;
  // c_str() would cut a URL at an embedded NUL and fetch some other address.
  if (request.url.find('\0') != std::string::npos) return "URL contains a NUL byte";
  const std::string method = request.method.empty() ? "GET" : request.method;
  if (!isToken(method)) return "invalid HTTP method \"" + method + "\"";

  for (const auto& [name, value] : request.headers) {
    if (!isToken(name) || !isHeaderValue(value)) return "invalid header \"" + name + "\"";
    // "Name;" is libcurl's way of sending a header with an empty value.
    if (!task.appendHeader(value.empty() ? name + ";" : name + ": " + value)) return "out of memory";
  }
  // An empty "Name:" removes what libcurl would add on its own.
  const bool sendsBody = !request.body.empty() || method == "POST" || method == "PUT" ||
                         method == "PATCH";
  std::vector<std::string_view> unwanted = {"Accept", "Expect"};
  if (sendsBody) unwanted.push_back("Content-Type");  // else "application/x-www-form-urlencoded"
  for (std::string_view header : unwanted) {
    if (!task.names(header) && !task.appendHeader(std::string(header) + ":")) return "out of memory";
  }

  CURLcode rc = CURLE_OK;
  auto set = [&](CURLoption option, auto value) {
    if (rc == CURLE_OK) rc = curl_easy_setopt(easy, option, value);
  };
  set(CURLOPT_URL, request.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_ERRORBUFFER, task.errorBuffer);
  set(CURLOPT_PRIVATE, static_cast<void*>(&task));
  set(CURLOPT_WRITEFUNCTION, appendBody);
  set(CURLOPT_WRITEDATA, static_cast<void*>(&task));
  if (request.maxResponseBytes && request.keepsResponseBody) {
    // Refused before the body when the reply announces its length.
    set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(*request.maxResponseBytes));
  }
  set(CURLOPT_HTTPHEADER, task.headers.get());
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!task.caFile.empty()) {
    // The certificates themselves, not the file's name: libcurl reuses a connection only for a
    // transfer trusting the same bytes, and its store cache (by file name, for a day) would
    // keep trusting a file's old contents.
    ReadResult pem = readWholeFile(task.caFile);
    if (pem.error) return "cannot read " + task.caFile + ": " + *pem.error;
    curl_blob blob{pem.data.data(), pem.data.size(), CURL_BLOB_COPY};
    set(CURLOPT_CAINFO_BLOB, &blob);
    set(CURLOPT_CAINFO, static_cast<const char*>(nullptr));
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  if (sendsBody) {
    // Sent straight from the request's own bytes: a large upload is never copied whole.
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    set(CURLOPT_POSTFIELDS, request.body.data());
    if (method != "POST") set(CURLOPT_CUSTOMREQUEST, method.c_str());
  } else if (method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else if (method == "GET") {
    set(CURLOPT_HTTPGET, 1L);
  } else {
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
  }
  if (rc != CURLE_OK) return std::string(curl_easy_strerror(rc));
  return std::nullopt;
}

bool isRedirect(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

struct Origin {
  std::string scheme, host, port;
  bool operator==(const Origin&) const = default;
};

std::optional<Origin> originOf(const std::string& url) {
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), curl_url_cleanup);
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return std::nullopt;
  const auto part = [&](CURLUPart which, unsigned flags) -> std::optional<std::string> {
    char* text = nullptr;
    if (curl_url_get(parsed.get(), which, &text, flags) != CURLUE_OK) return std::nullopt;
    std::string value(text);
    curl_free(text);
    std::transform(value.begin(), value.end(), value.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return value;
  };
  auto scheme = part(CURLUPART_SCHEME, 0);
  auto host = part(CURLUPART_HOST, 0);
  auto port = part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
  if (!scheme || !host || !port) return std::nullopt;
  return Origin{*std::move(scheme), *std::move(host), *std::move(port)};
}

void removeHeader(UrlRequest& request, std::string_view name) {
  std::erase_if(request.headers, [&](const auto& header) { return equalsIgnoringCase(header.first, name); });
}

// The request the next hop sends, or why there is none. Followed here rather than by libcurl:
// libcurl 7.88 sends a custom method (an upload's PUT) on every hop, so a 303 would go out as a
// PUT without its body, and it cannot be asked to check each hop before it goes.
std::optional<std::string> redirect(UrlRequest& request, long status, const std::string& location) {
  const std::optional<Origin> from = originOf(request.url);
  const std::optional<Origin> to = originOf(location);
  if (!from || !to || (to->scheme != "https" && to->scheme != "http")) {
    return "redirected to an unusable URL";
  }
  if (from->scheme == "https" && to->scheme != "https") return "redirect from https to " + to->scheme + " refused";
  // 301 and 302 change only a POST, as browsers do: a PUT turned into a GET would drop an upload
  // and read the page it lands on as its success.
  const bool becomesGet =
      status == 303 ? request.method != "HEAD" : (status == 301 || status == 302) && request.method == "POST";
  if (becomesGet) {
    request.method = "GET";
    request.body.clear();
    removeHeader(request, "Content-Type");
  }
  if (*from != *to) removeHeader(request, "Authorization");  // the player's token stays with its origin
  request.url = location;
  return std::nullopt;
}

// Whether the transfer failed only because the connection it reused had been closed by the
// server: nothing came back on it, and no connection was made for it. libcurl resends such a
// request itself, but only over other kept connections, which may all have gone the same way.
bool metDeadConnection(CURL* easy, CURLcode result) {
  if (result != CURLE_SEND_ERROR && result != CURLE_RECV_ERROR && result != CURLE_GOT_NOTHING) {
    return false;
  }
  long connectsMade = -1;
  long headerBytes = -1;
  curl_off_t bodyBytes = -1;
  curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &connectsMade);
  curl_easy_getinfo(easy, CURLINFO_HEADER_SIZE, &headerBytes);
  curl_easy_getinfo(easy, CURLINFO_SIZE_DOWNLOAD_T, &bodyBytes);
  return connectsMade == 0 && headerBytes == 0 && bodyBytes == 0;
}

// Wakes the I/O thread from any thread, for as long as the session lives: a platform may keep
// the wake-up it was handed after the session has gone.
struct Waker {
  std::mutex mutex;
  CURLM* multi = nullptr;  // guarded by mutex; null once the session is gone

  void wake() {
    std::lock_guard lock(mutex);
    if (multi != nullptr) curl_multi_wakeup(multi);
  }
};

}  // namespace

struct UrlSession::Impl {
  explicit Impl(Platform& p) : platform(p) {}

  Platform& platform;
  std::shared_ptr<DispatchQueue> completions;
  CURLM* multi = nullptr;
  std::shared_ptr<Waker> waker = std::make_shared<Waker>();
  std::thread io;

  std::mutex mutex;
  std::vector<std::unique_ptr<Task>> submitted;  // guarded by mutex
  bool stopping = false;                         // guarded by mutex
  bool abandoning = false;                       // guarded by mutex: stop without completing

  // Owned by the I/O thread.
  std::unordered_map<CURL*, std::unique_ptr<Task>> running;
  double wakeRequestedAt = -1;

  void run();
  void start(std::unique_ptr<Task> task);
  static int noteProgress(void* task, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded);
  void collectFinished();
  // Fails the requests that have moved no data for kUrlRequestTimeout; returns how long the
  // I/O thread may wait before the next one is due.
  int failSilentRequests();
  void resend(std::unique_ptr<Task> task);
  void follow(std::unique_ptr<Task> task, long status, const char* location);
  void finish(std::unique_ptr<Task> task, std::optional<std::string> error);
};

void UrlSession::Impl::run() {
  std::vector<std::unique_ptr<Task>> batch;
  for (;;) {
    {
      std::lock_guard lock(mutex);
      if (stopping) break;
      batch.swap(submitted);
    }
    for (auto& task : batch) start(std::move(task));
    batch.clear();
    int active = 0;
    curl_multi_perform(multi, &active);
    collectFinished();
    // Returns early for libcurl's own timers and for curl_multi_wakeup() from dataTask().
    curl_multi_poll(multi, nullptr, 0, failSilentRequests(), nullptr);
  }

  {
    std::lock_guard lock(mutex);
    // The process is ending: no handler may run, and nothing is torn down under a transfer.
    if (abandoning) return;
  }
  for (auto& [easy, task] : running) curl_multi_remove_handle(multi, easy);
  std::vector<std::unique_ptr<Task>> cancelled;
  for (auto& entry : running) cancelled.push_back(std::move(entry.second));
  running.clear();
  {
    std::lock_guard lock(mutex);
    for (auto& task : submitted) cancelled.push_back(std::move(task));
    submitted.clear();
  }
  for (auto& task : cancelled) finish(std::move(task), "the URL session was shut down");
}

void UrlSession::Impl::start(std::unique_ptr<Task> task) {
  task->lastActivity = platform.networkClock();
  task->easy.reset(curl_easy_init());
  if (!task->easy) return finish(std::move(task), "cannot make a transfer");
  if (auto error = configure(*task)) return finish(std::move(task), std::move(error));
  CURL* easy = task->easy.get();
  if (curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L) != CURLE_OK ||
      curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, noteProgress) != CURLE_OK ||
      curl_easy_setopt(easy, CURLOPT_XFERINFODATA, static_cast<void*>(task.get())) != CURLE_OK) {
    return finish(std::move(task), "cannot watch the transfer's progress");
  }
  if (CURLMcode rc = curl_multi_add_handle(multi, easy); rc != CURLM_OK) {
    return finish(std::move(task), std::string(curl_multi_strerror(rc)));
  }
  running.emplace(easy, std::move(task));
}

// Data moving either way keeps a request alive: a slow upload is not a silent server.
int UrlSession::Impl::noteProgress(void* context, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) {
  auto& task = *static_cast<Task*>(context);
  if (downloaded + uploaded != task.bytesMoved) {
    task.bytesMoved = downloaded + uploaded;
    task.lastActivity = task.platform->networkClock();
    task.platform->networkActivityProgressed();
  }
  return 0;
}

void UrlSession::Impl::collectFinished() {
  int queued = 0;
  while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
    if (message->msg != CURLMSG_DONE) continue;
    CURL* easy = message->easy_handle;
    const CURLcode result = message->data.result;
    curl_multi_remove_handle(multi, easy);
    auto it = running.find(easy);
    if (it == running.end()) continue;
    std::unique_ptr<Task> task = std::move(it->second);
    running.erase(it);
    if (result != CURLE_OK && !task->resent && metDeadConnection(easy, result)) {
      resend(std::move(task));
      continue;
    }
    if (task->tooLarge || result == CURLE_FILESIZE_EXCEEDED) {
      std::string text = "the reply is larger than " + std::to_string(*task->request.maxResponseBytes) + " bytes";
      finish(std::move(task), std::move(text));
      continue;
    }
    if (result != CURLE_OK) {
      std::string text = task->errorBuffer[0] != '\0' ? task->errorBuffer : curl_easy_strerror(result);
      finish(std::move(task), "curl error " + std::to_string(result) + ": " + text);
      continue;
    }
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    char* location = nullptr;
    if (isRedirect(status) && curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location) == CURLE_OK && location) {
      follow(std::move(task), status, location);
      continue;
    }
    task->response.statusCode = status;
    finish(std::move(task), std::nullopt);
  }
}

int UrlSession::Impl::failSilentRequests() {
  constexpr double timeout = std::chrono::duration<double>(kUrlRequestTimeout).count();
  const double now = platform.networkClock();
  std::vector<CURL*> silent;
  double nextDue = -1;
  for (const auto& [easy, task] : running) {
    const double due = task->lastActivity + timeout;
    if (due <= now) {
      silent.push_back(easy);
    } else if (nextDue < 0 || due < nextDue) {
      nextDue = due;
    }
  }
  for (CURL* easy : silent) {
    auto node = running.extract(easy);
    curl_multi_remove_handle(multi, easy);
    finish(std::move(node.mapped()),
           "the request timed out: no data for " + std::to_string(kUrlRequestTimeout.count()) + " s");
  }
  if (nextDue < 0) return kLongestPollMilliseconds;
  // A wake-up that comes early only makes the thread look again, so one is asked for only when
  // none is pending before the next due time.
  if (wakeRequestedAt <= now || nextDue < wakeRequestedAt) {
    wakeRequestedAt = nextDue;
    platform.wakeNetworkAt(nextDue, [waker = waker] { waker->wake(); });
  }
  return static_cast<int>(
      std::clamp(std::ceil((nextDue - now) * 1000.0), 0.0, static_cast<double>(kLongestPollMilliseconds)));
}

void UrlSession::Impl::resend(std::unique_ptr<Task> task) {
  task->resent = true;
  task->errorBuffer[0] = '\0';
  task->lastActivity = platform.networkClock();
  task->bytesMoved = 0;
  CURL* easy = task->easy.get();
  if (curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L) != CURLE_OK) {
    return finish(std::move(task), "cannot resend on a new connection");
  }
  if (CURLMcode rc = curl_multi_add_handle(multi, easy); rc != CURLM_OK) {
    return finish(std::move(task), std::string(curl_multi_strerror(rc)));
  }
  running.emplace(easy, std::move(task));
}

void UrlSession::Impl::follow(std::unique_ptr<Task> task, long status, const char* location) {
  if (++task->redirects > kMaxRedirects) {
    return finish(std::move(task), "more than " + std::to_string(kMaxRedirects) + " redirects");
  }
  if (auto refused = redirect(task->request, status, location)) return finish(std::move(task), std::move(refused));
  // A fresh transfer: the old one's connection goes back to the session's pool for this hop.
  task->easy.reset();
  task->headers.reset();
  task->response = UrlResponse{};
  task->resent = false;
  task->tooLarge = false;
  task->bytesMoved = 0;
  task->errorBuffer[0] = '\0';
  start(std::move(task));
}

void UrlSession::Impl::finish(std::unique_ptr<Task> task, std::optional<std::string> error) {
  UrlResponse response = std::move(task->response);
  if (error) {
    response.data.clear();
    response.statusCode = 0;
    response.error = std::move(error);
  }
  DataTaskHandler handler = std::move(task->handler);
  task.reset();  // the body and the connection's buffers go now, not when the handler has run
  completions->async([handler = std::move(handler), response = std::move(response)]() mutable {
    if (handler) handler(std::move(response));
  });
  // Only now: a simulation waiting for quiescence must find the completion already queued.
  platform.networkActivityEnded();
}

void UrlSession::initialiseProcessWide() {
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  (void)result;  // a failure shows again, and is reported, on every transfer
}

UrlSession::UrlSession(Platform& platform) : impl_(std::make_unique<Impl>(platform)) {
  initialiseProcessWide();
  impl_->completions = platform.makeSerialQueue("tavrel.url-session.completions");
  impl_->multi = curl_multi_init();
  if (impl_->multi == nullptr) throw std::runtime_error("curl_multi_init failed");
  impl_->waker->multi = impl_->multi;
  // Kept whatever the number of transfers under way: by default the cache shrinks with it.
  curl_multi_setopt(impl_->multi, CURLMOPT_MAXCONNECTS, kIdleConnections);
  impl_->io = std::thread([impl = impl_.get()] { impl->run(); });
}

void UrlSession::stop(bool abandon) {
  {
    std::lock_guard lock(impl_->mutex);
    if (impl_->stopping) return;
    impl_->stopping = true;
    impl_->abandoning = abandon;
  }
  curl_multi_wakeup(impl_->multi);
  impl_->io.join();
}

void UrlSession::abandonForExit() {
  stop(true);
}

UrlSession::~UrlSession() {
  stop(false);
  {
    std::lock_guard lock(impl_->waker->mutex);
    impl_->waker->multi = nullptr;
  }
  curl_multi_cleanup(impl_->multi);
}

void UrlSession::dataTask(UrlRequest request, DataTaskHandler handler) {
  auto task = std::make_unique<Task>();
  task->request = std::move(request);
  task->handler = std::move(handler);
  task->caFile = impl_->platform.trustedCertificatesFile();
  task->platform = &impl_->platform;
  impl_->platform.networkActivityBegan();
  {
    std::lock_guard lock(impl_->mutex);
    if (!impl_->stopping) {
      impl_->submitted.push_back(std::move(task));
    }
  }
  if (task) return impl_->finish(std::move(task), "the URL session was shut down");
  curl_multi_wakeup(impl_->multi);
}

}  // namespace tavrel
