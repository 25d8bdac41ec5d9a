// tavrel serve: a mock Tavrel service on 127.0.0.1 over HTTPS, with an upload endpoint, for
// running a game against the library without the real service and trying its login gate by hand.

#include "commands.hpp"
#include "live_page.hpp"

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "session/launch_url.hpp"

#include <malloc.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tavrel::cli {
namespace {

// A token shorter than this cannot travel in a launch URL: the game drops it.
constexpr std::size_t kLaunchTokenLength = 48;

struct Options {
  int port = 0;
  std::vector<std::string> tokens;
  std::string tokensFile;
  std::vector<std::string> refusedTokens;
  std::vector<std::string> users;
  std::vector<std::string> refusedUsers;
  int slowMilliseconds = 0;
  int failedUploads = 0;
  int redirectStatus = 0;
  std::string uploads;
  std::string scheme = "game";
};

struct Accounts {
  std::vector<std::string> tokens;  // in the order given: the first fit goes into the launch URL
  endpoint::MockService service;
};

// The header comes back trimmed and on one line, so a token with blanks at its ends or a
// control character could never match.
bool isUsableToken(const std::string& token) {
  if (token.empty() || token.front() == ' ' || token.front() == '\t' || token.back() == ' ' ||
      token.back() == '\t') {
    return false;
  }
  for (const unsigned char c : token) {
    if ((c < 0x20 && c != '\t') || c == 0x7f) return false;
  }
  return true;
}

std::string trimmed(const std::string& line) {
  const auto first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

void checkToken(const std::string& token, const std::string& origin) {
  // The token itself stays out of the message: it is a secret of the run.
  if (!isUsableToken(token)) {
    throw UsageError(origin +
                     ": a token must be non-empty, with no control characters and no blanks at its ends");
  }
}

void addToken(Accounts& accounts, std::string token, const std::string& origin) {
  checkToken(token, origin);
  if (accounts.service.validTokens.insert(token).second) accounts.tokens.push_back(std::move(token));
}

Accounts readAccounts(const Options& options) {
  Accounts accounts;
  for (std::size_t i = 0; i < options.tokens.size(); ++i) {
    addToken(accounts, options.tokens[i], "--token #" + std::to_string(i + 1));
  }
  for (std::size_t i = 0; i < options.refusedTokens.size(); ++i) {
    checkToken(options.refusedTokens[i], "--refuse-token #" + std::to_string(i + 1));
    accounts.service.refusedTokens.insert(options.refusedTokens[i]);
  }
  if (!options.tokensFile.empty()) {
    std::ifstream in(options.tokensFile);
    if (!in) throw UsageError("--tokens: cannot read '" + options.tokensFile + "'");
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
      std::string token = trimmed(line);
      if (!token.empty()) {
        addToken(accounts, std::move(token), options.tokensFile + ":" + std::to_string(number));
      }
    }
    if (in.bad()) throw UsageError("--tokens: cannot read '" + options.tokensFile + "'");
  }
  for (const auto& user : options.users) {
    const auto colon = user.find(':');
    if (colon == std::string::npos) {
      throw UsageError("--user: expected NAME:PASSWORD, got an argument without ':'");
    }
    accounts.service.users.emplace(user.substr(0, colon), user.substr(colon + 1));
  }
  accounts.service.refusedUsers.insert(options.refusedUsers.begin(), options.refusedUsers.end());
  if (options.slowMilliseconds < 0) throw UsageError("--slow: expected milliseconds, 0 or more");
  accounts.service.delay = std::chrono::milliseconds(options.slowMilliseconds);
  if (options.failedUploads < 0) throw UsageError("--fail-uploads: expected a count, 0 or more");
  accounts.service.failedUploads = options.failedUploads;
  if (options.redirectStatus != 0 && !std::set<int>{301, 302, 303, 307, 308}.count(options.redirectStatus)) {
    throw UsageError("--redirect: expected 301, 302, 303, 307 or 308");
  }
  return accounts;
}

std::string generatedToken() {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device device;
  std::uniform_int_distribution<std::size_t> pick(0, sizeof kAlphabet - 2);
  std::string token;
  for (std::size_t i = 0; i < kLaunchTokenLength; ++i) token.push_back(kAlphabet[pick(device)]);
  return token;
}

std::int64_t nowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The launch URL of the first accepted token that a launch URL can carry; without one, a token
// made for this run is added to the accepted ones and used.
std::string makeLaunchUrl(Accounts& accounts, const std::string& scheme, const std::string& baseUrl) {
  LaunchUrlValues values;
  values.scheme = scheme;
  values.gameEventUrl = baseUrl + "/game-events.evt";
  values.inputEventUrl = baseUrl + "/input-events.evt";
  values.recordingStartedAt = nowMilliseconds();
  for (const auto& token : accounts.tokens) {
    if (accounts.service.refusedTokens.count(token) != 0) continue;
    values.launchToken = token;
    try {
      return composeLaunchUrl(values);
    } catch (const std::invalid_argument&) {
      // Too short, or holding "+": valid for direct requests, but not for a launch URL.
    }
  }
  values.launchToken = generatedToken();
  std::string url = composeLaunchUrl(values);
  accounts.service.validTokens.insert(values.launchToken);
  accounts.tokens.push_back(values.launchToken);
  return url;
}

// A request path is the client's text: anything but printable ASCII is shown escaped so that a
// path cannot forge or break log lines.
std::string printablePath(const std::string& path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : path) {
    if (c > 0x20 && c < 0x7f && c != '%') {
      out.push_back(static_cast<char>(c));
    } else {
      out += {'%', kHex[c >> 4], kHex[c & 15]};
    }
  }
  return out;
}

class Output {
 public:
  void line(const std::string& text) {
    std::lock_guard lock(mutex_);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
  }

 private:
  std::mutex mutex_;
};

void run(const Options& options, int& exitStatus) {
  Accounts accounts = readAccounts(options);
  if (options.port < 0 || options.port > 65535) throw UsageError("--port: expected 0 to 65535");
  try {
    composeLaunchUrl({.scheme = options.scheme, .launchToken = generatedToken()});
  } catch (const std::invalid_argument& e) {
    throw UsageError(std::string("--scheme: ") + e.what());
  }
  if (!options.uploads.empty()) {
    std::error_code error;
    std::filesystem::create_directories(options.uploads, error);
    if (error || !std::filesystem::is_directory(options.uploads)) {
      throw UsageError("--uploads: cannot use '" + options.uploads + "' as a directory");
    }
  }

  // Blocked before the server's threads start, so that they inherit the mask and only this
  // thread takes the signals, in sigtimedwait below. A reader closing stdout must not end us.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  ::signal(SIGPIPE, SIG_IGN);

  // A large block always comes from the system and goes back to it when freed: by default glibc
  // raises this threshold to the size of each large block freed, so that the bodies of a growing
  // upload soon stay in the heaps of the threads that received them.
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  auto output = std::make_shared<Output>();
  auto page = std::make_shared<LivePage>();
  endpoint::HttpsServer::Options serverOptions;
  serverOptions.port = options.port;
  serverOptions.keepAlive = true;  // as the real service: the library reuses its connections
  // Each page's stream holds a worker for as long as it is open: the service keeps its own.
  serverOptions.threads += LivePage::kMaxStreams;
  // The page decodes the latest upload of each URL; the records are dropped every tick.
  serverOptions.keepBodies = true;
  serverOptions.uploadsDirectory = options.uploads;
  // Method, path, status and body size only: headers and bodies carry tokens and passwords.
  serverOptions.onRecord = [output, page](const endpoint::RecordedRequest& request) {
    page->record(request);
    output->line(request.method + " " + printablePath(request.path) + " " +
                 (request.dropped ? std::string("dropped") : std::to_string(request.status)) + " " +
                 std::to_string(request.bodySize));
  };

  std::unique_ptr<endpoint::HttpsServer> server;
  try {
    server = std::make_unique<endpoint::HttpsServer>(serverOptions);
    server->start();
  } catch (const std::runtime_error& e) {
    std::cerr << "tavrel serve: " << e.what() << "\n";
    exitStatus = 1;
    return;
  }

  const std::string launchUrl = makeLaunchUrl(accounts, options.scheme, server->baseUrl());
  accounts.service.install(*server);
  page->install(*server);
  if (options.redirectStatus != 0) server->redirectRequests(options.redirectStatus);

  output->line("base-url: " + server->baseUrl());
  output->line("ca-file: " + server->caFile());
  output->line("uploads: " + (options.uploads.empty() ? std::string("(not stored)")
                                                       : std::filesystem::absolute(options.uploads).string()));
  output->line("page: " + server->baseUrl() + "/");
  output->line("launch-url: " + launchUrl);

  // The page's pictures are drawn here, on the main thread, as the toolkit's text wants.
  const timespec tick{0, 200'000'000};
  for (int ticks = 1;; ++ticks) {
    const int signal = sigtimedwait(&stopSignals, nullptr, &tick);
    if (signal == SIGINT || signal == SIGTERM) break;
    // Nothing here reads the record; dropping it keeps a long run's memory flat.
    server->clearRequests();
    // Freed pages go back to the system after each file decoded and drawn here, and now and then
    // for the uploads received on twenty threads, which would otherwise stay in their arenas.
    if (page->refresh() || ticks % 25 == 0) malloc_trim(0);
  }
  page->close();
  server->stop();
  exitStatus = 0;
}

}  // namespace

void addServeCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "serve",
      "Run a mock Tavrel service and upload endpoint over HTTPS on 127.0.0.1 until SIGINT or SIGTERM.\n"
      "Prints its base URL, the CA certificate a client must trust and a launch URL whose upload\n"
      "URLs point at it, then one line per request: method, path, status, bytes received.\n"
      "The launch URL carries the first accepted token of 48 characters or more without '+'; when\n"
      "there is none, a 48-character token is made for the run and accepted too.\n"
      "Refusals: a refused token or user gets {\"valid\":false} or {\"authed\":false}; any other\n"
      "token, user or password gets 401 with no such key. A refusal wins over an acceptance.");
  command->add_option("--port", options->port, "port to listen on (default: a free one)");
  command->add_option("--token", options->tokens, "a token the service accepts (repeatable)");
  command->add_option("--tokens", options->tokensFile,
                      "a file of accepted tokens, one per line (blank lines are skipped)");
  command->add_option("--refuse-token", options->refusedTokens,
                      "a token answered {\"valid\":false} (repeatable)");
  command->add_option("--user", options->users, "an accepted login, NAME:PASSWORD (repeatable)");
  command->add_option("--refuse-user", options->refusedUsers,
                      "a user name answered {\"authed\":false}, whatever the password (repeatable)");
  command->add_option("--slow", options->slowMilliseconds,
                      "milliseconds the validate and login routes wait before answering");
  command->add_option("--fail-uploads", options->failedUploads,
                      "answer the first N uploads with status 500");
  command->add_option("--redirect", options->redirectStatus,
                      "answer every request first with this redirect status (301, 302, 303, 307 or 308)\n"
                      "to the same target under /moved, where it is served");
  command->add_option("--uploads", options->uploads,
                      "directory that stores the body of each PUT (default: bodies are discarded)");
  command->add_option("--scheme", options->scheme, "the game's URL scheme for the launch URL")
      ->capture_default_str();
  command->callback([options, &exitStatus] { run(*options, exitStatus); });
}

}  // namespace tavrel::cli
