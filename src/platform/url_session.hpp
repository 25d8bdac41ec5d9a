#pragma once

// The shared URL session on libcurl: one I/O thread drives every transfer through the multi
// interface; each completion is handed to the session's serial completion queue, never run on
// the I/O thread, so a completion that sleeps holds up only the completions after it.
//
// What goes over the wire is what the request names: its method, URL, headers and body, plus
// only what HTTP itself needs (Host, Content-Length). libcurl's own Accept, Expect and
// Content-Type are suppressed. TLS is verified, against platform.trustedCertificatesFile()
// alone when it names one (its contents as each request starts), else against the system's
// store. A request that moves no data, either way, for kUrlRequestTimeout on the platform's clock
// fails with a time-out error (on the simulation the time passes virtually). A reply body longer
// than the request's maxResponseBytes fails the request as soon as it crosses the limit; one
// the request does not keep is read and dropped. There is no cache. Only http and https URLs
// are fetched.
//
// Redirects are followed here, each hop a request of its own on the kept connections (a
// redirect is not a resend, and gets one of its own should it meet a dead connection), up to
// kMaxRedirects: 307 and 308 send the same method and body again, 303 turns into a GET without
// a body, 301 and 302 turn a POST into one and keep any other method. A hop from https to
// anything else fails the request, and the request's "Authorization" header is dropped for
// good at the first hop to another origin (scheme, host and port). The handler gets the last
// reply; a 3xx without a Location is such a reply.
//
// Connections are kept open after a reply (up to 16 idle ones) and reused by later requests to
// the same host and port that trust the same certificates. A kept connection may have been
// closed by the server meanwhile: a request that gets nothing back on one is sent again, by
// libcurl over other kept connections and, should those fail the same way, by the session once
// over a new connection. Nothing else is ever resent: a request that fails on a new connection,
// or after any byte of a reply, fails.

#include <tavrel_sdk/platform.hpp>

#include <memory>

namespace tavrel {

class TAVREL_EXPORT UrlSession {
 public:
  // `platform` makes the completion queue and is told when a request starts and when its
  // completion has been queued (networkActivityBegan/Ended). It must outlive the session.
  explicit UrlSession(Platform& platform);
  ~UrlSession();  // stops the I/O thread; transfers in flight complete with an error
  UrlSession(const UrlSession&) = delete;
  UrlSession& operator=(const UrlSession&) = delete;

  // Starts the request and returns at once; safe to call from any thread, a completion
  // included. The handler runs exactly once on the completion queue: with the body and status
  // when an HTTP reply came, otherwise with `error` set, an empty body and status 0. A URL
  // that cannot be parsed, a method that is no HTTP token and a header with a line break in
  // it are such errors; nothing is sent for them.
  void dataTask(UrlRequest request, DataTaskHandler handler);

  // For a process that is ending: stops the I/O thread and returns once it has, leaving every
  // transfer where it is and running no handler (nothing may run into objects being destroyed).
  // Requests made later complete with an error, on a queue the platform no longer runs.
  void abandonForExit();

  // libcurl's process-wide set-up (and so OpenSSL's, with its own exit handler); idempotent.
  static void initialiseProcessWide();

 private:
  void stop(bool abandon);

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tavrel
