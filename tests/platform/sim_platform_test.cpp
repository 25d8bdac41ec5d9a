#include "platform/sim_platform.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace tavrel {
namespace {

// What happened, and at which virtual second, in the order it happened.
struct Journal {
  std::mutex mutex;
  std::vector<std::pair<std::string, double>> entries;
  void add(std::string what, double at) {
    std::lock_guard lock(mutex);
    entries.emplace_back(std::move(what), at);
  }
};

// The worker never returns: shutting down unwinds it.
TEST(SimPlatform, TimersAndSleepersRunInTimeOrderOnVirtualTimeUntilShutdown) {
  auto sim = SimPlatform::create();
  Journal journal;
  std::atomic<bool> unwound{false};
  sim->scheduledTimer(4.0, [&] { journal.add("timer", sim->elapsed()); });
  sim->detachThread([&] {
    struct Guard {
      std::atomic<bool>& flag;
      ~Guard() { flag = true; }
    } guard{unwound};
    for (;;) {
      sim->sleepForTimeInterval(5.0);
      journal.add("worker", sim->elapsed());
    }
  });
  const auto started = std::chrono::steady_clock::now();
  sim->advance(12.0);
  const std::vector<std::pair<std::string, double>> expected = {
      {"timer", 4.0}, {"worker", 5.0}, {"timer", 8.0}, {"worker", 10.0}, {"timer", 12.0}};
  EXPECT_EQ(journal.entries, expected);
  EXPECT_DOUBLE_EQ(sim->elapsed(), 12.0);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10)) << "12 s of virtual time slept for real";
  sim->shutdown();
  EXPECT_TRUE(unwound);
}

TEST(SimPlatform, AdvanceWaitsForBusyThreadsAndQueuesToSettle) {
  auto sim = SimPlatform::create();
  std::atomic<int> stage{0};
  sim->detachThread([&] {
    // Real work of noticeable length before the thread goes to sleep.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    stage = 1;
    sim->sleepForTimeInterval(30.0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    stage = 2;
  });
  auto queue = sim->makeSerialQueue("test");
  std::atomic<int> queued{0};
  queue->async([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    queued = 1;
    sim->dispatchAsyncMain([&] { queued = 2; });
  });
  sim->runUntilIdle();
  EXPECT_EQ(stage, 1);
  EXPECT_EQ(queued, 2);  // the main-queue block the queue posted ran too
  sim->advance(29.0);
  EXPECT_EQ(stage, 1);
  sim->advance(1.0);
  EXPECT_EQ(stage, 2);
}

TEST(SimPlatform, SerialQueueRunsBlocksInOrderOneAtATime) {
  auto sim = SimPlatform::create();
  auto queue = sim->makeSerialQueue("ordered");
  std::vector<int> order;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  for (int i = 0; i < 20; ++i) {
    queue->async([&, i] {
      if (running.fetch_add(1) != 0) overlapped = true;
      if (i == 3) sim->sleepForTimeInterval(1.0);  // a sleeping block holds up only later blocks
      order.push_back(i);
      running.fetch_sub(1);
    });
  }
  sim->runUntilIdle();
  EXPECT_EQ(order.size(), 3u);
  sim->advance(1.0);
  ASSERT_EQ(order.size(), 20u);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(order[i], i);
  EXPECT_FALSE(overlapped);
}

TEST(SimPlatform, RandomNumbersAreSeededOrScripted) {
  auto a = SimPlatform::create({.seed = 7});
  auto b = SimPlatform::create({.seed = 7});
  for (int i = 0; i < 5; ++i) EXPECT_EQ(a->arc4random(), b->arc4random());
  a->scriptRandom({5, 300, 4000000000u});
  EXPECT_EQ(a->arc4random(), 5u);
  EXPECT_EQ(a->arc4random_uniform(256), 300u % 256);
  EXPECT_EQ(a->arc4random(), 4000000000u);
  for (int i = 0; i < 1000; ++i) EXPECT_LT(a->arc4random_uniform(3), 3u);
  EXPECT_EQ(a->arc4random_uniform(1), 0u);
}

}  // namespace
}  // namespace tavrel
