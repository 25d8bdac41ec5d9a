#include <tavrel_sdk/platform.hpp>

#include "platform/bundle.hpp"
#include "platform/notification_center.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace tavrel {
namespace {

TEST(NotificationCenter, DeliversByNameAndObjectBeforeThePostReturns) {
  NotificationCenter center;
  int form = 0, otherForm = 0, controller = 0;
  std::vector<std::string> seen;
  std::thread::id deliveredOn;
  center.addObserver(&controller, "authenticate", &form, [&](const Notification& n) {
    seen.push_back(n.name + ":" + n.userInfo.value("username", "?"));
    deliveredOn = std::this_thread::get_id();
  });
  center.addObserver(&controller, "authenticateFailed", nullptr, [&](const Notification& n) {
    seen.push_back(n.name);
  });
  center.postNotificationName("authenticate", &form, {{"username", "ann"}, {"password", ""}});
  center.postNotificationName("authenticate", &otherForm, nullptr);  // another object: not delivered
  center.postNotificationName("authenticateFailed", &otherForm);     // any object matches null
  EXPECT_EQ(seen, (std::vector<std::string>{"authenticate:ann", "authenticateFailed"}));
  EXPECT_EQ(deliveredOn, std::this_thread::get_id());

  center.removeObserver(&controller, "authenticate");
  center.postNotificationName("authenticate", &form);
  EXPECT_EQ(seen.size(), 2u);
  center.removeObserver(&controller);
  center.postNotificationName("authenticateFailed", nullptr);
  EXPECT_EQ(seen.size(), 2u);
}

class Bundle : public testing::SimulatedSession {};

TEST_F(Bundle, FirstSchemeOfTheFirstUrlType) {
  EXPECT_EQ(firstUrlScheme(), std::nullopt);
  sim().setInfoDictionaryJson(
      R"({"CFBundleURLTypes": [{"CFBundleURLSchemes": ["mygame", "other"]}, {"CFBundleURLSchemes": ["x"]}]})");
  EXPECT_EQ(firstUrlScheme(), "mygame");
  sim().setInfoDictionaryJson(R"({"CFBundleURLTypes": []})");
  EXPECT_EQ(firstUrlScheme(), std::nullopt);
  sim().setInfoDictionaryJson("not json");
  EXPECT_TRUE(objectForInfoDictionaryKey("CFBundleURLTypes").is_null());
}

// The real main loop: order and thread are what matter here, never how long things took.
TEST(LinuxPlatform, MainLoopAndSerialQueuesRunBlocksInOrderAndTimersOnTheLoopThreadTillInvalidated) {
  auto platform = Platform::makeLinux();
  std::vector<int> order, queued;
  std::thread([&] {
    for (int i = 0; i < 50; ++i) platform->dispatchAsyncMain([&order, i] { order.push_back(i); });
  }).join();
  auto queue = platform->makeSerialQueue("order");
  std::atomic<bool> done{false};
  for (int i = 0; i < 100; ++i) queue->async([&queued, i] { queued.push_back(i); });
  queue->async([&] { done = true; });
  std::atomic<int> firings{0};
  std::thread::id firedOn;
  auto timer = platform->scheduledTimer(0.001, [&] {
    ++firings;
    firedOn = std::this_thread::get_id();
  });
  timer.reset();  // the loop keeps its timers, as a run loop does
  while (firings < 3) platform->runMainLoopFor(0.01);
  ASSERT_EQ(order.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
  EXPECT_EQ(firedOn, std::this_thread::get_id());
  while (!done) std::this_thread::yield();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(queued[i], i);

  std::atomic<int> stopped{0};
  auto invalidated = platform->scheduledTimer(0.001, [&] { ++stopped; });
  while (stopped == 0) platform->runMainLoopFor(0.005);
  invalidated->invalidate();
  const int seen = stopped;
  platform->runMainLoopFor(0.02);
  EXPECT_EQ(stopped, seen);
}

}  // namespace
}  // namespace tavrel
