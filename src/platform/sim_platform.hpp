#pragma once

// A deterministic platform for tests and the simulator.
//
// One virtual clock drives every wait: wall-clock reads, main-loop timers and thread sleeps.
// advance() moves time from one due wake-up to the next, in time order (ties in the order they
// were scheduled), and at each step waits until the system is quiescent: the main queue drained,
// every seam thread asleep or idle, no request in flight. Real sockets stay real: a request in
// flight is waited for in real time, not faked, until it has moved no data for
// Options::silentNetworkAfter of real time. A silent request then no longer holds time still,
// so that its time-out can come in virtual time; data moving on it makes it count again.
//
// The thread that calls advance() or runMainLoopFor() is the main thread: main-queue blocks and
// timers run on it. Random numbers come from a seeded generator, or from a script of values.
// Log lines are captured. exit() is recorded, not performed.

#include <tavrel_sdk/platform.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace tavrel {

class TAVREL_EXPORT SimPlatform final : public Platform {
 public:
  struct Options {
    // 2026-03-09T13:05:33.000Z
    double startTime = 1773061533.0;
    std::uint64_t seed = 1;
    bool logToStderr = false;
    // Longer than any reply a test holds back on purpose.
    std::chrono::milliseconds silentNetworkAfter{2000};
  };

  static std::shared_ptr<SimPlatform> create(Options options);
  static std::shared_ptr<SimPlatform> create() { return create(Options{}); }
  // Cancels the seam threads (their sleeps throw ThreadCancelled) and joins them.
  ~SimPlatform() override;

  // Seconds of virtual time since the platform was made.
  double elapsed();
  // Moves virtual time forward by `seconds`, running everything that falls due on the way.
  // Call from the main thread only.
  void advance(double seconds);
  // Drains the main queue and waits for quiescence without moving time.
  void runUntilIdle();
  // Moves the wall clock by `seconds` (negative: backwards) without firing timers or waking
  // sleepers; timers and sleeps follow the virtual monotonic time.
  void stepWallClock(double seconds);

  // The next draws return these values in order (arc4random_uniform returns value % bound),
  // then the seeded generator takes over again.
  void scriptRandom(std::vector<std::uint32_t> values);

  std::vector<std::string> logLines();
  void clearLog();
  std::optional<int> exitStatus();
  // Stops every seam thread now (see the destructor). Idempotent.
  void shutdown();

  // Platform
  double timeIntervalSince1970() override;
  void sleepForTimeInterval(double seconds) override;
  void dispatchAsyncMain(std::function<void()> block) override;
  std::shared_ptr<Timer> scheduledTimer(double interval, std::function<void()> fire) override;
  void runMainLoopFor(double seconds) override;
  void detachThread(std::function<void()> body) override;
  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;
  std::uint32_t arc4random() override;
  std::uint32_t arc4random_uniform(std::uint32_t upperBound) override;
  void exit(int status) override;

 protected:
  void networkActivityBegan() override;
  void networkActivityEnded() override;
  void networkActivityProgressed() override;
  double networkClock() override;
  void wakeNetworkAt(double time, std::function<void()> wake) override;
  void onLog(std::string_view message) override;

 public:
  struct State;  // shared with the seam threads and queues

 private:
  explicit SimPlatform(Options options);
  std::shared_ptr<State> state_;
};

}  // namespace tavrel
