#pragma once

// A real HTTPS server on 127.0.0.1 for tests, benchmarks and `tavrel serve`: an upload endpoint
// that takes a PUT at any path, custom routes for a mock service, a record of every request, and
// controls that make it misbehave (a given status, a late reply, a dropped connection).
//
// The certificate is made at run time and written to caFile(), so a client can trust exactly it.
// Requests are served concurrently on a pool of threads, each connection closed after one reply
// unless Options::keepAlive says otherwise. Every member is safe to call from any thread.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrel::endpoint {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct RecordedRequest {
  std::string method;
  std::string target;  // path and query, as sent
  std::string path;    // decoded, without the query
  HeaderList headers;  // as received: names in the case they were sent, in name order
  std::string body;    // empty when the server keeps no bodies (Options::keepBodies)
  std::size_t bodySize = 0;
  int status = 0;  // the status answered; 0 when the connection was dropped
  std::string replyBody;  // the body answered (a route's own, so never a secret of the client's)
  bool dropped = false;
  // The connection that carried it: connections are numbered from 1 in the order accepted.
  std::uint64_t connection = 0;

  // The first value of a header, the name matched without regard to case.
  std::optional<std::string> header(std::string_view name) const;
};

struct Reply {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  // Held back this long before it is sent; stop() cuts the wait short.
  std::chrono::milliseconds delay{0};
  // When set, the body is streamed instead (server-sent events): called again and again on the
  // serving thread, each call writing what it has through `write` (false once the client has
  // gone) and returning whether to go on. A stopping server ends the stream between calls, so
  // a call returns within a second or so. The connection holds its worker meanwhile.
  std::function<bool(const std::function<bool(std::string_view)>& write)> stream{};
  HeaderList headers{};  // sent as they are, beside Content-Type and Content-Length
  // Above 1: the body is sent this many times over, through `stream` (chunked, no Content-Length),
  // without the whole ever being held, so a reply of any size costs the server no memory.
  std::size_t repeat = 1;
};

// A custom route's handler; it runs on a server thread, concurrently with other requests.
using RouteHandler = std::function<Reply(const RecordedRequest&)>;

// A control's count meaning every request from now on, until resetControls().
inline constexpr int kEveryRequest = -1;

class HttpsServer {
 public:
  struct Options {
    int port = 0;  // 0: a free port
    // Workers serving connections at once; later connections wait until one is free.
    int threads = 16;
    // When true, a connection serves request after request until the client closes it, it has
    // been idle for 5 s, or closeIdleConnections(). Each open connection holds a worker
    // meanwhile. When false, every connection is closed after one reply.
    bool keepAlive = false;
    // When false, bodies are counted but not kept (records and latestBody() hold none), so
    // large uploads cost the server no memory.
    bool keepBodies = true;
    // When set, the body of every PUT answered 2xx is also written to a file in this existing
    // directory, named after its path (see uploadFileName()), replacing an older one.
    std::string uploadsDirectory{};
    // When set, called with every request as it is recorded (answered or dropped), on the
    // server thread that served it, concurrently with other requests.
    std::function<void(const RecordedRequest&)> onRecord{};
  };

  // Makes the certificate and writes caFile(); throws std::runtime_error on failure.
  HttpsServer();
  explicit HttpsServer(Options options);
  ~HttpsServer();  // stops; removes the certificate file
  HttpsServer(const HttpsServer&) = delete;
  HttpsServer& operator=(const HttpsServer&) = delete;

  // Binds and starts serving; returns once connections are accepted. Throws std::runtime_error
  // when the port cannot be bound. A stopped server may be started again (on a new port when
  // Options::port is 0).
  void start();
  // Stops accepting, cuts short delayed replies, closes connections between requests and waits
  // for the workers. Idempotent.
  void stop();
  bool running() const;

  int port() const;
  std::string baseUrl() const;                // "https://127.0.0.1:PORT"
  std::string url(std::string_view target) const;  // baseUrl() + target
  const std::string& caFile() const;           // the PEM of the certificate the server presents

  // A route for `method` at exactly `path` (the query is ignored when matching). Routes win over
  // the default PUT store; a method and path without a route get 404 (PUT: stored, 200).
  void addRoute(std::string method, std::string path, RouteHandler handler);

  // Controls. Each applies to every request (kEveryRequest) or to the next `count` requests as
  // they arrive, routes included. They combine: a delayed request is then dropped or answered.
  // The status replaces what the route or the store would have answered (the body is kept);
  // with `method` set, only requests of that method count and are answered so.
  void answerStatus(int status, int count = kEveryRequest, std::string method = {});
  void delayReplies(std::chrono::milliseconds delay, int count = kEveryRequest);
  // Closes the connection without a reply, after reading the request.
  void dropConnections(int count = kEveryRequest);
  // Every request for a path outside kMovedPrefix is answered `status` (a redirect) with
  // Location kMovedPrefix + its target, and one under kMovedPrefix is served as the path
  // without it, routes and uploads alike. 0 turns it off; resetControls() does not.
  void redirectRequests(int status);
  static constexpr std::string_view kMovedPrefix = "/moved";
  void resetControls();

  // The server closes every connection accepted so far, as an idle time-out would, at the
  // moment a client uses it again: the next request on it gets no reply and is not recorded
  // (the client cannot tell it from a request sent as the server closed the connection).
  // Connections accepted later are served as usual. Call it while no client is connecting.
  void closeIdleConnections();
  // Connections accepted since the server was made (each one TLS handshake).
  std::uint64_t connectionsAccepted() const;

  // Every request answered or dropped so far, in the order of their outcome.
  std::vector<RecordedRequest> requests() const;
  std::size_t requestCount() const;
  // Waits until at least `count` requests have been recorded; false on time-out.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;
  // The body of the latest PUT at `path` answered with a 2xx status.
  std::optional<std::string> latestBody(const std::string& path) const;
  void clearRequests();

  // The file name a PUT at `path` is stored under: the path without its leading slash, every
  // byte outside [A-Za-z0-9._-] replaced by '_'; never empty, "." or "..".
  static std::string uploadFileName(std::string_view path);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tavrel::endpoint
