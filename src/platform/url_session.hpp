#pragma once

// The shared URL session on libcurl: one I/O thread drives every transfer through the multi
// interface; each completion is handed to the session's serial completion queue, never run on
// the I/O thread, so a completion that sleeps holds up only the completions after it.

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

  // Starts the request and returns at once. The handler runs exactly once on the completion
  // queue: with the body and status when an HTTP reply came, otherwise with an error (which
  // includes a URL that cannot be parsed).
  void dataTask(UrlRequest request, DataTaskHandler handler);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tavrel
