#pragma once

// The shared URL session on libcurl: one I/O thread drives every transfer through the multi
// interface; each completion is handed to the session's serial completion queue, never run on
// the I/O thread, so a completion that sleeps holds up only the completions after it.
//
// What goes over the wire is what the request names: its method, URL, headers and body, plus
// only what HTTP itself needs (Host, Content-Length). libcurl's own Accept, Expect and
// Content-Type are suppressed. TLS is verified, against platform.trustedCertificatesFile()
// alone when it names one, else against the system's store. There is no time-out, cache or
// retry, and redirects are not followed. Only http and https URLs are fetched.

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

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tavrel
