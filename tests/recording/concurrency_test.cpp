// Emitters on several threads at once, racing each other, the first write and the upload worker.
// Meant to run under TSan as well.

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

// Input events whose words check each other, so a torn or spliced record shows.
std::vector<std::int32_t> touch(std::int32_t thread, std::int32_t index) {
  return {6, 0, 6, thread, index, index ^ 0x5A5A, thread + 1000};
}

void expectIntact(const InputRecord& record) {
  ASSERT_EQ(record.kind(), InputRecord::Kind::TouchMoved);
  EXPECT_EQ(record.payload[4], record.payload[3] ^ 0x5A5A);
  EXPECT_EQ(record.payload[5], record.payload[2] + 1000);
}

TEST_F(Concurrency, ThreadsRacingTheFirstWriteGetOneHeaderAndEveryRecord) {
  initialise("https://127.0.0.1:9/g.evt", "https://127.0.0.1:9/i.evt", originMs());
  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      sdk().emitInputEvent(touch(t, 0));
      sdk().emitGameEvent("thread", std::to_string(t));
    });
  }
  for (auto& thread : threads) thread.join();

  const EventFileContents game = readEventFile(readFile(gameEventPath()));
  EXPECT_TRUE(game.wellFormed());
  EXPECT_EQ(game.gameEvents.size(), static_cast<std::size_t>(kThreads));
  const EventFileContents input = readEventFile(readFile(inputEventPath()));
  EXPECT_TRUE(input.wellFormed());
  EXPECT_EQ(input.inputRecords.size(), 5u) << "one run of the rate limit";
  for (const auto& record : input.inputRecords) expectIntact(record);
  EXPECT_TRUE(logsStartingWith("SDK > Failed").empty());
}

TEST_F(Concurrency, EmittersRacingTheWorkerLoseNothing) {
  endpoint::HttpsServer server;
  server.start();
  sim().setTrustedCertificatesFile(server.caFile());
  initialise(server.url("/g.evt"), server.url("/i.evt"), originMs());

  constexpr int kThreads = 4;
  std::atomic<bool> stop{false};
  std::vector<int> emitted(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; !stop.load(); ++i) {
        sdk().emitGameEvent(std::to_string(t), std::to_string(i));
        sdk().emitInputEvent(touch(t, i));
        emitted[t] = i + 1;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    });
  }
  // Time moves, and the worker uploads, while the threads write.
  while (sim().elapsed() < 65.0) {
    sim().advance(0.125);
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  stop = true;
  for (auto& thread : threads) thread.join();
  EXPECT_GE(server.requestCount(), 4u);

  // An upload that read the file before a thread's last record may have cleared the flag after
  // it; one more event makes the next pass send the whole file.
  sdk().emitGameEvent("last", "event");
  sim().advance(30.0);

  const std::string gameBytes = readFile(gameEventPath());
  const EventFileContents game = readEventFile(gameBytes);
  EXPECT_TRUE(game.wellFormed());
  std::map<std::string, int> next;  // each thread's events, complete and in order
  for (const auto& event : game.gameEvents) {
    if (event.a == "last") continue;
    EXPECT_EQ(event.e, std::to_string(next[event.a]++));
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[std::to_string(t)], emitted[t]);
  EXPECT_EQ(server.latestBody("/g.evt"), gameBytes);

  const EventFileContents input = readEventFile(readFile(inputEventPath()));
  EXPECT_TRUE(input.wellFormed());
  EXPECT_GE(input.inputRecords.size(), 5u);
  for (const auto& record : input.inputRecords) expectIntact(record);
}

}  // namespace
}  // namespace tavrel::testing
