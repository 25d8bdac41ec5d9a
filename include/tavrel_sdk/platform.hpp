#pragma once

// The platform seam: every operation the library needs of its host system (clock, main loop,
// threads, URL session, random numbers, log, Documents directory, bundle settings, exit).
//
// Thread safety: every member of Platform is safe to call from any thread without outside
// locking, unless its comment says otherwise.
//
// A host picks one implementation at start-up with Platform::install(): the real Linux one
// (Platform::makeLinux(), the default when nothing is installed) or the deterministic
// simulation used by tests and the simulator (SimPlatform, in the library's source tree).

#include <tavrel_sdk/export.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrel {

// Called with true on success; empty for "no completion".
using Completion = std::function<void(bool)>;

// A request that moves no data, either way, for this long fails with a time-out error, as the
// platform's shared session's requests do. Measured on the platform's clock.
inline constexpr std::chrono::seconds kUrlRequestTimeout{60};
// Redirects a request follows before it fails, as the platform's shared session does.
inline constexpr int kMaxRedirects = 16;

// A request's body: a string, or a whole file read into pages mapped for it alone. Those pages
// go back to the system the moment the last copy of the body goes, whatever the allocator would
// keep: a session that sends its growing files again and again is left with none of them.
// Copies share the bytes, which never change.
class TAVREL_EXPORT UrlBody {
 public:
  UrlBody() = default;
  UrlBody(std::string bytes) : text_(std::move(bytes)) {}
  UrlBody(const char* bytes) : text_(bytes) {}

  // The file's bytes as it stood when opened (what is appended meanwhile waits for the next
  // read). Absent, with `error` set, when it cannot be read.
  static std::optional<UrlBody> contentsOfFile(const std::string& path, std::string& error);

  std::string_view bytes() const;
  const char* data() const { return bytes().data(); }
  std::size_t size() const { return bytes().size(); }
  bool empty() const { return size() == 0; }
  void clear() {
    text_.clear();
    pages_.reset();
  }
  friend bool operator==(const UrlBody& body, std::string_view bytes) { return body.bytes() == bytes; }

 private:
  struct Pages;  // a mapping of its own, unmapped with the last copy
  std::string text_;
  std::shared_ptr<const Pages> pages_;
};

struct UrlRequest {
  std::string url;
  std::string method = "GET";
  std::vector<std::pair<std::string, std::string>> headers;
  UrlBody body;
  // A reply body longer than this fails the request as soon as it crosses the limit, with
  // nothing of it kept. Absent: no limit.
  std::optional<std::size_t> maxResponseBytes{};
  // False: the reply body is read and dropped (UrlResponse::data stays empty); the status stands.
  bool keepsResponseBody = true;
};

struct UrlResponse {
  std::string data;
  long statusCode = 0;
  // Present when no HTTP reply came back (connection refused or dropped, TLS failure, bad URL,
  // time-out, a body over the request's limit).
  std::optional<std::string> error;
};

using DataTaskHandler = std::function<void(UrlResponse)>;

// A serial queue: blocks run one at a time, in the order they were submitted, on a thread of
// the queue's own.
class TAVREL_EXPORT DispatchQueue {
 public:
  virtual ~DispatchQueue();
  virtual void async(std::function<void()> block) = 0;
};

// A repeating timer on the main loop. Nothing in the library stops one; invalidate() is for hosts.
class TAVREL_EXPORT Timer {
 public:
  virtual ~Timer();
  virtual void invalidate() = 0;
};

// Thrown out of sleepForTimeInterval() on a seam thread when its platform shuts down, so that
// threads which never return (the upload worker) unwind instead of outliving their platform.
struct TAVREL_EXPORT ThreadCancelled {};

class UrlSession;

class TAVREL_EXPORT Platform : public std::enable_shared_from_this<Platform> {
 public:
  virtual ~Platform();

  // The platform the library uses. Installs the Linux platform on first use if none is installed.
  static Platform& current();
  // Replaces the platform the library uses. Call at start-up, before the library is used;
  // the installed platform is kept alive for the rest of the process.
  static void install(std::shared_ptr<Platform> platform);
  static std::shared_ptr<Platform> makeLinux();

  // --- Clock -------------------------------------------------------------------------------
  // Wall clock: seconds since 1970 with a fraction (NSDate timeIntervalSince1970).
  virtual double timeIntervalSince1970() = 0;
  // Blocks the calling thread (NSThread sleepForTimeInterval:).
  virtual void sleepForTimeInterval(double seconds) = 0;
  // timeIntervalSince1970() * 1000.0, truncated toward zero.
  std::int64_t currentMilliseconds();

  // --- Main loop ---------------------------------------------------------------------------
  // Runs the block later on the main thread, in submission order (dispatch_async on the main queue).
  virtual void dispatchAsyncMain(std::function<void()> block) = 0;
  // A repeating timer firing on the main thread every `interval` seconds.
  virtual std::shared_ptr<Timer> scheduledTimer(double interval, std::function<void()> fire) = 0;
  // Runs the main loop on the calling thread, which is the host's main thread, for `seconds` of
  // this platform's time: main-queue blocks and timers run here. Call from one thread only.
  virtual void runMainLoopFor(double seconds) = 0;

  // --- Threads -----------------------------------------------------------------------------
  // Starts a detached thread running `body` (NSThread start). ThreadCancelled ends it quietly.
  virtual void detachThread(std::function<void()> body) = 0;
  virtual std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) = 0;

  // --- URL session -------------------------------------------------------------------------
  // The shared session: requests run concurrently; each handler runs exactly once, on the
  // session's serial background queue. Connections to a host are kept open and reused; a
  // request that meets one the server has closed is sent once more on a fresh connection, and
  // nothing else is retried. Redirects (301, 302, 303, 307, 308) are followed, up to
  // kMaxRedirects, and the handler gets the last reply: 307 and 308 keep the method and body,
  // 303 turns into a GET, 301 and 302 turn a POST into a GET and keep any other method. A
  // redirect from https to anything else fails the request, and "Authorization" goes only to
  // the origin the request was made for. A request fails after kUrlRequestTimeout without data,
  // and when its reply crosses maxResponseBytes. No cache; TLS is verified. Once the process has
  // begun to exit, no handler runs.
  void dataTask(UrlRequest request, DataTaskHandler handler);

  // --- Random numbers ----------------------------------------------------------------------
  virtual std::uint32_t arc4random() = 0;
  // Uniform in [0, upperBound); 0 for a bound below 2.
  virtual std::uint32_t arc4random_uniform(std::uint32_t upperBound) = 0;

  // --- Log (NSLog) ---------------------------------------------------------------------------
  // One line per call: to stderr in the platform's shape, and to the sink if one is set.
  void log(std::string_view message);
  // Replaces the sink; an empty function removes it. With a sink set, echoing to stderr is
  // controlled by setLogToStderr().
  void setLogSink(std::function<void(std::string_view)> sink);
  void setLogToStderr(bool enabled);

  // --- Process -------------------------------------------------------------------------------
  // exit(status). The simulation records the status instead of ending the process.
  virtual void exit(int status) = 0;

  // --- Host settings -------------------------------------------------------------------------
  // The app's Documents directory. Default: $TAVREL_DOCUMENTS if set, else
  // $XDG_DATA_HOME/tavrel_sdk/Documents (or ~/.local/share/tavrel_sdk/Documents).
  // It is created (mode 0700) when set and on first use.
  void setDocumentsDirectory(std::string path);
  std::string documentsDirectory();

  // A PEM file of the only certificate authorities the URL session trusts. Empty: the
  // system's trust store. Tests name a certificate made at run time.
  void setTrustedCertificatesFile(std::string pemPath);
  std::string trustedCertificatesFile();

  // For tests and local integration only (a mock service on 127.0.0.1): replaces the Tavrel
  // service's compiled-in base URL. A shipped game never calls this.
  void setServiceBaseUrlForTesting(std::string baseUrl);
  std::optional<std::string> serviceBaseUrlOverride();

  // The host bundle's Info dictionary as JSON text (for example {"CFBundleURLTypes": [...]}).
  void setInfoDictionaryJson(std::string json);
  std::string infoDictionaryJson();

 protected:
  Platform();
  // For the simulation's quiescence: a request is in flight from dataTask() until its
  // handler has been queued on the session's completion queue.
  virtual void networkActivityBegan() {}
  virtual void networkActivityEnded() {}
  // Stops the URL session: derived destructors call it while their parts still exist.
  void shutDownUrlSession();
  // The process is ending (exit() on any thread, or a return from main): called once for the
  // installed platform, on the exiting thread, before the library's objects are destroyed. The
  // URL session stops without running another handler; an override also brings the platform's
  // own threads to rest, and calls this.
  virtual void prepareForExit();
  // The clock of the URL session's time-out: monotonic seconds from any origin.
  virtual double networkClock();
  // For a platform whose clock does not run in real time: wake the URL session (call `wake`,
  // from any thread) when networkClock() reaches `time`. Replaces the previous wake-up. A real
  // clock needs nothing: the session's own wait ends in time.
  virtual void wakeNetworkAt(double /*time*/, std::function<void()> /*wake*/) {}
  // Data moved for a request in flight.
  virtual void networkActivityProgressed() {}
  // Sees every log message before the sink and stderr do.
  virtual void onLog(std::string_view /*message*/) {}
  // The line written to stderr for a log message, without its line feed.
  virtual std::string formatLogLine(std::string_view message);

 private:
  friend class UrlSession;
  static void registerExitHandlerOnce();  // called under the installation's lock
  static void prepareInstalledPlatformForExit();
  std::shared_ptr<UrlSession> urlSession();  // null after shutDownUrlSession()

  std::mutex settingsMutex_;
  std::string documentsDirectory_;
  bool documentsDirectoryReady_ = false;
  std::string trustedCertificatesFile_;
  std::optional<std::string> serviceBaseUrlOverride_;
  std::string infoDictionaryJson_ = "{}";
  std::function<void(std::string_view)> logSink_;
  bool logToStderr_ = true;

  std::mutex urlSessionMutex_;
  std::shared_ptr<UrlSession> urlSession_;
  bool urlSessionShutDown_ = false;
};

}  // namespace tavrel
