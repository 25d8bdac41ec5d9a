// A game quits while requests are held by a silent service, the overlay's timer due, the upload thread asleep.

#include "endpoint/https_server.hpp"
#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tavrel::testing {
namespace {

using namespace std::chrono_literals;

TEST(Quitting, EndsWithTheStatusAskedForWhateverIsInFlight) {
  endpoint::HttpsServer silent({.threads = 64});  // every held request holds a worker
  silent.delayReplies(1h);
  silent.start();
  TemporaryDirectory documents;

  const std::pair<std::string, int> ways[] = {{"return", 0}, {"exit", 0}, {"exit-thread", 0}, {"terminate", 255}};
  // At once, as the requests go out, and once they wait at the server.
  for (const char* wait : {"0", "150", "600"}) {
    for (const auto& [how, status] : ways) {
      const ToolRun run = runProgram(QUITTING_GAME, {silent.baseUrl(), silent.caFile(), documents.path(), wait, how}, {}, 20s);
      EXPECT_EQ(run.status, status) << how << " after " << wait << " ms\n" << run.err;
    }
  }
}

}  // namespace
}  // namespace tavrel::testing
