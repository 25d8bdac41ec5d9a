#pragma once

// The Tavrel service's two routes on an HttpsServer, with what a login gate needs to be tried:
// tokens it accepts and refuses, users who log in or are refused, and a service slow to answer.
// `tavrel serve` runs it on its own; tools and tests can run it in process.
//
// Replies, for a request as the library sends it:
//   validate  a valid token: 200 {"valid":true}; a refused token: 200 {"valid":false};
//             any other token, or none: 401 with a body that has no "valid" key.
//   login     a user and its password: 200 {"authed":true}; a refused user, whatever the
//             password: 200 {"authed":false}; other names and passwords, or an empty URL scheme:
//             401 with a body that has no "authed" key; a body that is not the library's
//             (not an object, a member missing or not a string): 400 {"authed":false}.
// A refusal always wins over an acceptance of the same token or user.

#include "endpoint/https_server.hpp"

#include <chrono>
#include <set>
#include <string>
#include <utility>

namespace tavrel::endpoint {

struct MockService {
  std::set<std::string> validTokens{};
  std::set<std::string> refusedTokens{};
  std::set<std::pair<std::string, std::string>> users{};  // user name and password
  std::set<std::string> refusedUsers{};
  // How long both routes take to answer; a stopping server answers at once.
  std::chrono::milliseconds delay{0};
  // The next this many uploads (PUT requests) are answered 500.
  int failedUploads = 0;

  // Installs the two routes, with a copy of these settings, replacing any routes at their paths,
  // and arms the failed uploads. Safe while the server runs: a request already being answered
  // finishes with the routes it found.
  void install(HttpsServer& server) const;
};

}  // namespace tavrel::endpoint
