// Emitters racing each other, the first write and the upload worker; meant to run under TSan as well.

#include "endpoint/https_server.hpp"
#include "recording/event_file_reader.hpp"
#include "recording_fixture.hpp"

#include <atomic>
#include <latch>
#include <map>
#include <thread>

namespace tavrel::testing {
namespace {

using Concurrency = RecordingTest;

TEST_F(Concurrency, EmittersRacingEachOtherTheFirstWriteAndTheWorkerLoseNothing) {
  endpoint::HttpsServer server;
  server.start();
  sim().setTrustedCertificatesFile(server.caFile());
  initialise(server.url("/g.evt"), server.url("/i.evt"), originMs());

  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::atomic<bool> stop{false};
  std::vector<int> emitted(kThreads, 0);
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int i = 0; !stop.load(); ++i) {
        sdk().emitGameEvent(std::to_string(t), std::to_string(i));
        // Words that check each other, so a torn or spliced record shows.
        sdk().emitInputEvent({6, 0, 6, t, i, i ^ 0x5A5A, t + 1000});
        emitted[t] = i + 1;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    });
  }
  while (sim().elapsed() < 65.0) {
    sim().advance(0.125);
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  stop = true;
  threads.clear();
  // A pass that read the file before a thread's last record may have cleared the flag after it;
  // one more event makes the next pass send the whole file.
  sdk().emitGameEvent("last", "event");
  sim().advance(30.0);

  const std::string gameBytes = readFile(gameEventPath());
  const EventFileContents game = readEventFile(gameBytes);
  EXPECT_TRUE(game.wellFormed()) << "one header, whole lines";
  std::map<std::string, int> next;  // each thread's events, complete and in order
  for (const auto& event : game.gameEvents) {
    if (event.a != "last") {
      EXPECT_EQ(event.e, std::to_string(next[event.a]++));
    }
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[std::to_string(t)], emitted[t]);
  EXPECT_EQ(server.latestBody("/g.evt"), gameBytes);

  const EventFileContents input = readEventFile(readFile(inputEventPath()));
  EXPECT_TRUE(input.wellFormed() && input.inputRecords.size() > 5u);
  for (const auto& record : input.inputRecords) {
    ASSERT_EQ(record.kind(), InputRecord::Kind::TouchMoved);
    EXPECT_EQ(record.payload[4], record.payload[3] ^ 0x5A5A);
    EXPECT_EQ(record.payload[5], record.payload[2] + 1000);
  }
  EXPECT_TRUE(logs("SDK > Failed to open").empty());
}

}  // namespace
}  // namespace tavrel::testing
