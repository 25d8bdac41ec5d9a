#include "endpoint/https_server.hpp"

#include "endpoint/certificate.hpp"

#include <httplib.h>
#include <fcntl.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <stdexcept>
#include <strings.h>
#include <thread>

namespace tavrel::endpoint {
namespace {

namespace fs = std::filesystem;

// How often a control still applies; kEveryRequest for always.
template <typename T>
struct Control {
  T value{};
  int remaining = 0;

  void set(T v, int count) {
    value = v;
    remaining = count < 0 ? kEveryRequest : count;
  }
  std::optional<T> take() {
    if (remaining == 0) return std::nullopt;
    if (remaining > 0) --remaining;
    return value;
  }
};

fs::path makeTemporaryDirectory() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                        "/tavrel-endpoint-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("https server: cannot make a temporary directory in " + pattern);
  }
  return pattern;
}

void writeFile(const fs::path& path, std::string_view data) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  out.close();
  if (!out) throw std::runtime_error("https server: cannot write " + path.string());
}

// cpp-httplib passes the peer's address to handlers as made-up request headers.
bool isPseudoHeader(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
         name == "LOCAL_PORT";
}

bool isSuccess(int status) { return status >= 200 && status < 300; }

// shutdown(), not close(): the library still owns the descriptor and closes it later.
void cutConnection(const httplib::Request& req) {
  const int fd = req.ssl != nullptr ? SSL_get_fd(req.ssl) : -1;
  if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
}

}  // namespace

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && ::strncasecmp(key.data(), name.data(), name.size()) == 0) {
      return value;
    }
  }
  return std::nullopt;
}

struct HttpsServer::Impl {
  Options options;
  LoopbackCertificate certificate;
  fs::path directory;
  std::string caFile;

  std::mutex lifecycle;  // serialises start() and stop()
  std::unique_ptr<httplib::SSLServer> server;
  std::thread listener;
  std::atomic<std::uint64_t> accepted{0};

  mutable std::mutex mutex;
  mutable std::condition_variable changed;  // a request recorded, or stopping
  int port = 0;
  bool stopping = false;
  std::map<std::pair<std::string, std::string>, RouteHandler> routes;
  Control<int> status;
  std::string statusMethod;  // empty: every method
  Control<std::chrono::milliseconds> delay;
  Control<bool> drop;
  int redirectStatus = 0;
  std::vector<RecordedRequest> records;
  std::map<std::string, std::string> latestBodies;
  std::uint64_t closedThrough = 0;  // connections numbered up to this one take no more requests

  struct OpenConnection {
    // A descriptor of our own: it names this socket even after the library has closed its own.
    int socket = -1;
    bool busy = false;  // from the handler's start to the end of the reply
  };
  std::map<std::uint64_t, OpenConnection> open;

  // The server and connection the calling worker serves; none outside a connection.
  static thread_local Impl* servingServer;
  static thread_local std::uint64_t servedConnection;
  class ConnectionPool;

  static void onTlsEvent(const SSL* ssl, int where, int result);
  void opened(int fd);
  void replied();
  void closed();
  // Whether the client of the calling worker's connection has closed it or shut it for writing.
  bool clientLeft();

  bool keepsBody(const httplib::Request& req) {
    std::lock_guard lock(mutex);
    return options.keepBodies || !options.uploadsDirectory.empty() ||
           routes.count({req.method, req.path}) != 0;
  }

  void serve(const httplib::Request& req, httplib::Response& res, std::string body,
             std::size_t bodySize);
  void record(RecordedRequest request);
  void store(const RecordedRequest& request);
};

thread_local HttpsServer::Impl* HttpsServer::Impl::servingServer = nullptr;
thread_local std::uint64_t HttpsServer::Impl::servedConnection = 0;

// The worker pool, numbering connections as they are accepted: cpp-httplib hands each accepted
// connection to enqueue() as one task that serves it until it is closed.
class HttpsServer::Impl::ConnectionPool : public httplib::TaskQueue {
 public:
  ConnectionPool(std::size_t threads, Impl& server) : pool_(threads), server_(server) {}

  void enqueue(std::function<void()> serveConnection) override {
    const std::uint64_t connection = ++server_.accepted;
    pool_.enqueue([this, serveConnection = std::move(serveConnection), connection] {
      servingServer = &server_;
      servedConnection = connection;
      serveConnection();
      server_.closed();
      servingServer = nullptr;
      servedConnection = 0;
    });
  }
  void shutdown() override { pool_.shutdown(); }

 private:
  httplib::ThreadPool pool_;
  Impl& server_;
};

// The socket is first known here, on the worker, as the handshake starts.
void HttpsServer::Impl::onTlsEvent(const SSL* ssl, int where, int /*result*/) {
  if ((where & SSL_CB_HANDSHAKE_START) != 0 && servingServer != nullptr) {
    servingServer->opened(SSL_get_fd(ssl));
  }
}

void HttpsServer::Impl::opened(int fd) {
  std::lock_guard lock(mutex);
  // TLS 1.3 signals a handshake start again for its messages after the handshake.
  if (fd < 0 || open.count(servedConnection) != 0) return;
  const int own = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (own < 0) return;
  if (stopping) ::shutdown(own, SHUT_RDWR);
  open[servedConnection] = {own, false};
}

void HttpsServer::Impl::replied() {
  std::lock_guard lock(mutex);
  const auto it = open.find(servedConnection);
  if (it == open.end()) return;
  it->second.busy = false;
  // Between requests a kept-alive connection would hold its worker, and stop(), for seconds.
  if (stopping) ::shutdown(it->second.socket, SHUT_RDWR);
}

bool HttpsServer::Impl::clientLeft() {
  int socket = -1;
  {
    std::lock_guard lock(mutex);
    const auto it = open.find(servedConnection);
    if (it == open.end()) return false;
    socket = it->second.socket;
  }
  pollfd peer{socket, POLLRDHUP, 0};
  return ::poll(&peer, 1, 0) > 0 && (peer.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

void HttpsServer::Impl::closed() {
  std::lock_guard lock(mutex);
  const auto it = open.find(servedConnection);
  if (it == open.end()) return;
  ::close(it->second.socket);
  open.erase(it);
}

void HttpsServer::Impl::serve(const httplib::Request& req, httplib::Response& res,
                              std::string body, std::size_t bodySize) {
  RecordedRequest request;
  request.method = req.method;
  request.target = req.target;
  request.path = req.path;
  for (const auto& [name, value] : req.headers) {
    if (!isPseudoHeader(name)) request.headers.emplace_back(name, value);
  }
  request.body = std::move(body);
  request.bodySize = bodySize;
  request.connection = servedConnection;

  std::optional<int> statusOverride;
  std::optional<std::chrono::milliseconds> lateBy;
  bool dropIt = false;
  std::optional<Reply> redirected;
  RouteHandler route;
  {
    std::unique_lock lock(mutex);
    if (const auto it = open.find(request.connection); it != open.end()) it->second.busy = true;
    if (request.connection <= closedThrough) {
      // Closed while idle: the request met a connection that was already gone.
      lock.unlock();
      cutConnection(req);
      res.status = 500;
      return;
    }
    if (statusMethod.empty() || statusMethod == req.method) statusOverride = status.take();
    lateBy = delay.take();
    dropIt = drop.take().has_value();
    if (redirectStatus != 0) {
      const std::string moved = std::string(kMovedPrefix) + "/";
      if (request.path.rfind(moved, 0) == 0) {
        request.path.erase(0, kMovedPrefix.size());
      } else {
        redirected = Reply{.status = redirectStatus,
                           .body = {},
                           .contentType = {},
                           .headers = {{"Location", std::string(kMovedPrefix) + req.target}}};
      }
    }
    if (auto it = routes.find({req.method, request.path}); it != routes.end()) route = it->second;
    if (lateBy) changed.wait_for(lock, *lateBy, [this] { return stopping; });
  }

  if (dropIt) {
    // Recorded first: the client may see the failure before this thread runs again.
    request.dropped = true;
    record(std::move(request));
    cutConnection(req);
    res.status = 500;
    return;
  }

  Reply reply;
  if (redirected) {
    reply = std::move(*redirected);
  } else if (route) {
    try {
      reply = route(request);
    } catch (const std::exception& e) {
      reply = Reply{500, e.what(), "text/plain"};
    }
  } else if (req.method == "PUT") {
    reply = Reply{200, {}, {}};
  } else {
    reply = Reply{404, {}, {}};
  }
  if (statusOverride) reply.status = *statusOverride;
  if (reply.delay > std::chrono::milliseconds::zero()) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, reply.delay, [this] { return stopping; });
  }

  if (!redirected && !route && req.method == "PUT" && isSuccess(reply.status)) {
    try {
      store(request);
    } catch (const std::exception& e) {
      reply = Reply{500, e.what(), "text/plain"};
    }
  }
  res.status = reply.status;
  for (const auto& [name, value] : reply.headers) res.set_header(name, value);
  if (reply.repeat > 1 && !reply.stream) {
    reply.stream = [piece = reply.body, left = reply.repeat](const auto& write) mutable {
      return left > 0 && !piece.empty() && write(piece) && --left > 0;
    };
  }
  if (reply.stream) {
    res.set_chunked_content_provider(reply.contentType, [this, stream = reply.stream](std::size_t, httplib::DataSink& sink) {
      // A client that has gone ends its stream now: writes into its socket would go on
      // succeeding until the kernel learns of it, holding the worker for seconds.
      const bool more = !clientLeft() && stream([&sink](std::string_view data) {
        return sink.is_writable() && sink.write(data.data(), data.size());
      });
      bool stopped = false;
      {
        std::lock_guard lock(mutex);
        stopped = stopping;
      }
      if (!more || stopped) sink.done();
      return true;
    });
  } else if (!reply.body.empty() || !reply.contentType.empty()) {
    res.set_content(reply.body, reply.contentType.empty() ? "text/plain" : reply.contentType);
  }
  request.status = reply.status;
  request.replyBody = std::move(reply.body);
  record(std::move(request));
}

void HttpsServer::Impl::store(const RecordedRequest& request) {
  if (!options.uploadsDirectory.empty()) {
    // Written aside and renamed, so a reader never sees half an upload.
    const fs::path target = fs::path(options.uploadsDirectory) / uploadFileName(request.path);
    fs::path partial = target;
    partial += ".part";
    writeFile(partial, request.body);
    fs::rename(partial, target);
  }
  if (options.keepBodies) {
    std::lock_guard lock(mutex);
    latestBodies[request.path] = request.body;
  }
}

void HttpsServer::Impl::record(RecordedRequest request) {
  if (!options.keepBodies) request.body.clear();
  if (options.onRecord) options.onRecord(request);
  {
    std::lock_guard lock(mutex);
    records.push_back(std::move(request));
  }
  changed.notify_all();
}

HttpsServer::HttpsServer() : HttpsServer(Options{}) {}

HttpsServer::HttpsServer(Options options) : impl_(std::make_unique<Impl>()) {
  impl_->options = std::move(options);
  impl_->certificate = makeLoopbackCertificate();
  impl_->directory = makeTemporaryDirectory();
  impl_->caFile = (impl_->directory / "ca.pem").string();
  writeFile(impl_->caFile, impl_->certificate.pem);
}

HttpsServer::~HttpsServer() {
  stop();
  std::error_code ignored;
  fs::remove_all(impl_->directory, ignored);
}

void HttpsServer::start() {
  std::lock_guard life(impl_->lifecycle);
  if (impl_->server) return;
  Impl& impl = *impl_;
  auto server =
      std::make_unique<httplib::SSLServer>(impl.certificate.cert.get(), impl.certificate.key.get());
  if (!server->is_valid()) throw std::runtime_error("https server: TLS set-up failed");
  server->set_tcp_nodelay(true);
  // Without keep-alive, one request per connection: an idle connection would hold a worker for
  // seconds. With it, no limit on the requests a connection carries.
  server->set_keep_alive_max_count(impl.options.keepAlive ? std::numeric_limits<std::size_t>::max() : 1);
  const auto threads = static_cast<std::size_t>(std::max(1, impl.options.threads));
  server->new_task_queue = [threads, &impl] { return new Impl::ConnectionPool(threads, impl); };
  server->set_logger([&impl](const httplib::Request&, const httplib::Response&) { impl.replied(); });
  SSL_CTX_set_info_callback(server->ssl_context(), &Impl::onTlsEvent);

  auto plain = [&impl](const httplib::Request& req, httplib::Response& res) {
    impl.serve(req, res, {}, 0);
  };
  auto withBody = [&impl](const httplib::Request& req, httplib::Response& res,
                          const httplib::ContentReader& read) {
    if (req.is_multipart_form_data()) {
      res.status = 415;
      return;
    }
    const bool keep = impl.keepsBody(req);
    std::string body;
    std::size_t size = 0;
    read([&](const char* data, std::size_t length) {
      size += length;
      if (keep) body.append(data, length);
      return true;
    });
    impl.serve(req, res, std::move(body), size);
  };
  server->Get(".*", plain);
  server->Options(".*", plain);
  server->Put(".*", withBody);
  server->Post(".*", withBody);
  server->Patch(".*", withBody);
  server->Delete(".*", withBody);

  int port = impl.options.port;
  if (port == 0) {
    port = server->bind_to_any_port("127.0.0.1");
  } else if (!server->bind_to_port("127.0.0.1", port)) {
    port = -1;
  }
  if (port <= 0) {
    throw std::runtime_error("https server: cannot bind 127.0.0.1:" +
                             std::to_string(impl.options.port));
  }
  {
    std::lock_guard lock(impl.mutex);
    impl.port = port;
    impl.stopping = false;
  }
  httplib::SSLServer* raw = server.get();
  impl.listener = std::thread([raw] { raw->listen_after_bind(); });
  // stop() is a no-op until the accept loop runs, so start() returns only once it does.
  while (!raw->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  impl.server = std::move(server);
}

void HttpsServer::stop() {
  std::lock_guard life(impl_->lifecycle);
  if (!impl_->server) return;
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
    for (const auto& [number, connection] : impl_->open) {
      if (!connection.busy) ::shutdown(connection.socket, SHUT_RDWR);
    }
  }
  impl_->changed.notify_all();
  impl_->server->stop();
  impl_->listener.join();  // the accept loop joins its workers before it returns
  impl_->server.reset();
}

bool HttpsServer::running() const {
  std::lock_guard life(impl_->lifecycle);
  return impl_->server != nullptr;
}

int HttpsServer::port() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->port;
}

std::string HttpsServer::baseUrl() const { return "https://127.0.0.1:" + std::to_string(port()); }

std::string HttpsServer::url(std::string_view target) const {
  return baseUrl().append(target);
}

const std::string& HttpsServer::caFile() const { return impl_->caFile; }

void HttpsServer::addRoute(std::string method, std::string path, RouteHandler handler) {
  std::lock_guard lock(impl_->mutex);
  impl_->routes[{std::move(method), std::move(path)}] = std::move(handler);
}

void HttpsServer::answerStatus(int status, int count, std::string method) {
  std::lock_guard lock(impl_->mutex);
  impl_->status.set(status, count);
  impl_->statusMethod = std::move(method);
}

void HttpsServer::delayReplies(std::chrono::milliseconds delay, int count) {
  std::lock_guard lock(impl_->mutex);
  impl_->delay.set(delay, count);
}

void HttpsServer::dropConnections(int count) {
  std::lock_guard lock(impl_->mutex);
  impl_->drop.set(true, count);
}

void HttpsServer::redirectRequests(int status) {
  std::lock_guard lock(impl_->mutex);
  impl_->redirectStatus = status;
}

void HttpsServer::resetControls() {
  std::lock_guard lock(impl_->mutex);
  impl_->status = {};
  impl_->statusMethod.clear();
  impl_->delay = {};
  impl_->drop = {};
}

void HttpsServer::closeIdleConnections() {
  std::lock_guard lock(impl_->mutex);
  impl_->closedThrough = impl_->accepted.load();
}

std::uint64_t HttpsServer::connectionsAccepted() const { return impl_->accepted.load(); }

std::vector<RecordedRequest> HttpsServer::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->records;
}

std::size_t HttpsServer::requestCount() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->records.size();
}

bool HttpsServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, timeout,
                                 [&] { return impl_->records.size() >= count; });
}

std::optional<std::string> HttpsServer::latestBody(const std::string& path) const {
  std::lock_guard lock(impl_->mutex);
  auto it = impl_->latestBodies.find(path);
  if (it == impl_->latestBodies.end()) return std::nullopt;
  return it->second;
}

void HttpsServer::clearRequests() {
  std::lock_guard lock(impl_->mutex);
  impl_->records.clear();
  impl_->latestBodies.clear();
}

std::string HttpsServer::uploadFileName(std::string_view path) {
  if (!path.empty() && path.front() == '/') path.remove_prefix(1);
  std::string name;
  for (const char c : path) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '.' || c == '_' || c == '-';
    name.push_back(plain ? c : '_');
  }
  if (name.empty() || name == "." || name == "..") name.assign(std::max<std::size_t>(1, name.size()), '_');
  return name;
}

}  // namespace tavrel::endpoint
