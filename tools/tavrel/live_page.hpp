#pragma once

// The live page of `tavrel serve`: at the server's base URL a page (web/, built into the tool)
// that shows, as requests arrive, the token checks and logins with their outcome, the uploads
// with their size and status, and for each upload URL its latest file decoded: game events as a
// table, touches as the event plot. It carries no token or password: only method, path, status,
// size and the service's own answer of each request reach it.
//
// Updates reach the page as server-sent events at /page/events. What the server keeps is
// bounded (the latest requests, the latest file of the latest upload URLs), and so are the
// streams: each holds a server worker, so past kMaxStreams a page is refused and retries.
//
// Thread safety: record() from any server thread; refresh() on one thread only (it draws with
// the toolkit's text system), close() from any thread.

#include "endpoint/https_server.hpp"

#include <tavrel_sdk/ui/geometry.hpp>

#include <memory>

namespace tavrel::cli {

class LivePage {
 public:
  static constexpr int kMaxStreams = 4;

  explicit LivePage(CGSize screen = {390, 844});
  ~LivePage();
  LivePage(const LivePage&) = delete;
  LivePage& operator=(const LivePage&) = delete;

  // The page's routes: "/", "/page/style.css", "/page/app.js", "/page/events", "/page/plot.png".
  void install(endpoint::HttpsServer& server);
  // Every request the server records; the page's own are left out.
  void record(const endpoint::RecordedRequest& request);
  // Decodes and draws the uploads recorded since the last call, and tells the pages; true when
  // there were any.
  bool refresh();
  // Ends every stream, so that the server stops at once.
  void close();

  struct State;  // shared with the routes and the pages' streams

 private:
  std::shared_ptr<State> state_;
};

}  // namespace tavrel::cli
