#include <tavrel_sdk/platform.hpp>

#include "platform/date_format.hpp"
#include "platform/files.hpp"
#include "platform/url_session.hpp"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace tavrel {

DispatchQueue::~DispatchQueue() = default;
Timer::~Timer() = default;

namespace {

std::mutex installMutex;
// Never destroyed: the library's threads (the URL session's, its queue, the upload worker, the
// main loop) run until the process ends, and an exit() on one thread would otherwise pull the
// platform from under the others.
std::shared_ptr<Platform>& installedPlatform = *new std::shared_ptr<Platform>;
// Read without the lock on every library call; the shared_ptr above keeps it alive.
std::atomic<Platform*> currentPlatform{nullptr};

}  // namespace

// Runs as the process ends (exit() on any thread, or a return from main), before the library's
// own objects are destroyed and before OpenSSL's exit handler: libcurl's set-up, which
// registers that handler, comes first, and exit handlers run in the reverse order.
void Platform::prepareInstalledPlatformForExit() {
  std::shared_ptr<Platform> platform;
  {
    std::lock_guard lock(installMutex);
    platform = installedPlatform;
  }
  if (platform) platform->prepareForExit();
}

void Platform::registerExitHandlerOnce() {
  static bool registered = false;
  if (registered) return;
  registered = true;
  UrlSession::initialiseProcessWide();
  std::atexit(prepareInstalledPlatformForExit);
}

namespace {

std::string defaultDocumentsDirectory() {
  if (const char* explicitDir = std::getenv("TAVREL_DOCUMENTS"); explicitDir && *explicitDir) {
    return explicitDir;
  }
  std::string base;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) {
    base = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    base = std::string(home) + "/.local/share";
  } else {
    base = "/tmp";
  }
  return base + "/tavrel_sdk/Documents";
}

}  // namespace

Platform::Platform() = default;
Platform::~Platform() = default;

Platform& Platform::current() {
  if (Platform* platform = currentPlatform.load(std::memory_order_acquire)) {
    return *platform;
  }
  std::lock_guard lock(installMutex);
  registerExitHandlerOnce();
  if (!installedPlatform) {
    installedPlatform = makeLinux();
    currentPlatform.store(installedPlatform.get(), std::memory_order_release);
  }
  return *installedPlatform;
}

void Platform::install(std::shared_ptr<Platform> platform) {
  std::shared_ptr<Platform> previous;
  {
    std::lock_guard lock(installMutex);
    registerExitHandlerOnce();
    previous = std::move(installedPlatform);
    installedPlatform = std::move(platform);
    currentPlatform.store(installedPlatform.get(), std::memory_order_release);
  }
  // `previous` is released outside the lock: its destructor may join threads.
}

std::int64_t Platform::currentMilliseconds() {
  return static_cast<std::int64_t>(timeIntervalSince1970() * 1000.0);
}

void Platform::dataTask(UrlRequest request, DataTaskHandler handler) {
  if (auto session = urlSession()) {
    session->dataTask(std::move(request), std::move(handler));
  }
}

std::shared_ptr<UrlSession> Platform::urlSession() {
  std::lock_guard lock(urlSessionMutex_);
  if (!urlSession_ && !urlSessionShutDown_) {
    urlSession_ = std::make_shared<UrlSession>(*this);
  }
  return urlSession_;
}

void Platform::shutDownUrlSession() {
  std::shared_ptr<UrlSession> session;
  {
    std::lock_guard lock(urlSessionMutex_);
    urlSessionShutDown_ = true;
    session = std::move(urlSession_);
  }
  session.reset();
}

void Platform::prepareForExit() {
  std::shared_ptr<UrlSession> session;
  {
    std::lock_guard lock(urlSessionMutex_);
    urlSessionShutDown_ = true;
    session = urlSession_;  // kept: destroying it would run the handlers of what was in flight
  }
  if (session) session->abandonForExit();
}

double Platform::networkClock() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Platform::log(std::string_view message) {
  onLog(message);
  std::function<void(std::string_view)> sink;
  bool toStderr;
  {
    std::lock_guard lock(settingsMutex_);
    sink = logSink_;
    toStderr = logToStderr_;
  }
  if (sink) {
    sink(message);
  }
  if (toStderr) {
    std::string line = formatLogLine(message);
    line.push_back('\n');
    // One write per line keeps lines from different threads whole.
    std::size_t written = 0;
    while (written < line.size()) {
      ssize_t n = ::write(STDERR_FILENO, line.data() + written, line.size() - written);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      written += static_cast<std::size_t>(n);
    }
  }
}

void Platform::setLogSink(std::function<void(std::string_view)> sink) {
  std::lock_guard lock(settingsMutex_);
  logSink_ = std::move(sink);
}

void Platform::setLogToStderr(bool enabled) {
  std::lock_guard lock(settingsMutex_);
  logToStderr_ = enabled;
}

std::string Platform::formatLogLine(std::string_view message) {
  return logLinePrefix(timeIntervalSince1970()) + std::string(message);
}

void Platform::setDocumentsDirectory(std::string path) {
  std::lock_guard lock(settingsMutex_);
  documentsDirectory_ = std::move(path);
  documentsDirectoryReady_ = false;
}

std::string Platform::documentsDirectory() {
  std::lock_guard lock(settingsMutex_);
  if (documentsDirectory_.empty()) {
    documentsDirectory_ = defaultDocumentsDirectory();
  }
  if (!documentsDirectoryReady_) {
    // Documents always exists on the device; here it is made on first use.
    documentsDirectoryReady_ = createDirectories(documentsDirectory_);
  }
  return documentsDirectory_;
}

void Platform::setTrustedCertificatesFile(std::string pemPath) {
  std::lock_guard lock(settingsMutex_);
  trustedCertificatesFile_ = std::move(pemPath);
}

std::string Platform::trustedCertificatesFile() {
  std::lock_guard lock(settingsMutex_);
  return trustedCertificatesFile_;
}

void Platform::setServiceBaseUrlForTesting(std::string baseUrl) {
  std::lock_guard lock(settingsMutex_);
  serviceBaseUrlOverride_ = std::move(baseUrl);
}

std::optional<std::string> Platform::serviceBaseUrlOverride() {
  std::lock_guard lock(settingsMutex_);
  return serviceBaseUrlOverride_;
}

void Platform::setInfoDictionaryJson(std::string json) {
  std::lock_guard lock(settingsMutex_);
  infoDictionaryJson_ = std::move(json);
}

std::string Platform::infoDictionaryJson() {
  std::lock_guard lock(settingsMutex_);
  return infoDictionaryJson_;
}

}  // namespace tavrel
