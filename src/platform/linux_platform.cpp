// The real platform on Linux: the wall clock, std threads, a main loop that the host runs on
// its main thread, glibc's arc4random.

#include <tavrel_sdk/platform.hpp>

#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <thread>

namespace tavrel {
namespace {

using Clock = std::chrono::steady_clock;

std::chrono::nanoseconds toDuration(double seconds) {
  return std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
}

// How long an exiting process waits for the platform's threads to finish what they are running.
constexpr std::chrono::seconds kExitGrace{2};

// The platform's own threads (main loop, serial queues, detached threads) as the process ends.
// Each counts itself running while it runs a block or a thread body and is not asleep. Once the
// process exits, the exiting thread waits (kExitGrace at most) until no other one is running,
// and from then on no other thread starts a block or wakes from a sleep: it rests until the
// process is gone, so nothing runs into the objects that exit() destroys.
class ExitGate {
 public:
  // A block or a thread body runs on this thread between the two.
  void enter() {
    std::unique_lock lock(mutex_);
    restIfExiting(lock);
    ++running_;
    ++depth;
  }
  void leave() {
    std::lock_guard lock(mutex_);
    --running_;
    --depth;
    changed_.notify_all();
  }

  void sleep(Clock::duration length) {
    const auto until = Clock::now() + length;
    std::unique_lock lock(mutex_);
    const bool counted = depth > 0;
    if (counted) {
      --running_;
      changed_.notify_all();
    }
    changed_.wait_until(lock, until, [&] { return exiting_ && !isExitingThread(); });
    restIfExiting(lock);
    if (counted) ++running_;
  }

  void quiesce() {
    std::unique_lock lock(mutex_);
    exiting_ = true;
    exitingThread_ = std::this_thread::get_id();
    changed_.notify_all();
    changed_.wait_for(lock, kExitGrace, [&] { return running_ <= depth; });
  }

 private:
  bool isExitingThread() const { return std::this_thread::get_id() == exitingThread_; }
  void restIfExiting(std::unique_lock<std::mutex>& lock) {
    if (exiting_ && !isExitingThread()) {
      changed_.notify_all();
      changed_.wait(lock, [] { return false; });
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  int running_ = 0;
  bool exiting_ = false;
  std::thread::id exitingThread_;
  static thread_local int depth;  // blocks and bodies this thread is inside
};

thread_local int ExitGate::depth = 0;

// Runs a block or a thread body counted by the gate; ThreadCancelled ends it quietly.
void runCounted(ExitGate& gate, const std::function<void()>& body) {
  gate.enter();
  struct Leave {
    ExitGate& gate;
    ~Leave() { gate.leave(); }
  } leave{gate};
  try {
    body();
  } catch (const ThreadCancelled&) {
  }
}

class LinuxSerialQueue final : public DispatchQueue {
 public:
  explicit LinuxSerialQueue(std::shared_ptr<ExitGate> gate) : state_(std::make_shared<State>()) {
    state_->gate = std::move(gate);
    std::thread([state = state_] { run(*state); }).detach();
  }
  ~LinuxSerialQueue() override {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    state_->wake.notify_all();
  }

  void async(std::function<void()> block) override {
    std::lock_guard lock(state_->mutex);
    state_->blocks.push_back(std::move(block));
    state_->wake.notify_one();
  }

 private:
  struct State {
    std::shared_ptr<ExitGate> gate;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> blocks;
    bool stopping = false;
  };

  // Runs what was queued before the queue was released, then ends.
  static void run(State& state) {
    std::unique_lock lock(state.mutex);
    for (;;) {
      state.wake.wait(lock, [&] { return state.stopping || !state.blocks.empty(); });
      if (state.blocks.empty()) return;
      auto block = std::move(state.blocks.front());
      state.blocks.pop_front();
      lock.unlock();
      runCounted(*state.gate, block);
      lock.lock();
    }
  }

  std::shared_ptr<State> state_;
};

class LinuxPlatform final : public Platform {
 public:
  ~LinuxPlatform() override { shutDownUrlSession(); }

  void prepareForExit() override {
    Platform::prepareForExit();
    gate_->quiesce();
  }

  double timeIntervalSince1970() override {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
  }

  void sleepForTimeInterval(double seconds) override {
    gate_->sleep(std::chrono::duration_cast<Clock::duration>(toDuration(std::max(seconds, 0.0))));
  }

  void dispatchAsyncMain(std::function<void()> block) override {
    std::lock_guard lock(mutex_);
    mainQueue_.push_back(std::move(block));
    wake_.notify_all();
  }

  std::shared_ptr<Timer> scheduledTimer(double interval, std::function<void()> fire) override {
    auto timer = std::make_shared<MainTimer>(*this, std::max(interval, 0.0001), std::move(fire));
    std::lock_guard lock(mutex_);
    timers_.emplace(std::make_pair(Clock::now() + timer->interval, nextSequence_++), timer);
    wake_.notify_all();
    return timer;
  }

  void runMainLoopFor(double seconds) override {
    const auto deadline = Clock::now() + toDuration(seconds);
    std::unique_lock lock(mutex_);
    for (;;) {
      while (!mainQueue_.empty()) {
        auto block = std::move(mainQueue_.front());
        mainQueue_.pop_front();
        lock.unlock();
        runCounted(*gate_, block);
        lock.lock();
      }
      const auto now = Clock::now();
      if (!timers_.empty() && timers_.begin()->first.first <= now) {
        auto node = timers_.extract(timers_.begin());
        auto timer = node.mapped();
        if (timer && !timer->invalidated) {
          // Like a run-loop timer, missed firings are skipped rather than run late in a burst.
          auto due = node.key().first + timer->interval;
          while (due <= now) due += timer->interval;
          timers_.emplace(std::make_pair(due, nextSequence_++), timer);
          lock.unlock();
          runCounted(*gate_, timer->fire);
          lock.lock();
        }
        continue;
      }
      if (now >= deadline) return;
      auto until = deadline;
      if (!timers_.empty()) until = std::min(until, timers_.begin()->first.first);
      wake_.wait_until(lock, until);
    }
  }

  void detachThread(std::function<void()> body) override {
    std::thread([gate = gate_, body = std::move(body)] { runCounted(*gate, body); }).detach();
  }

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string) override {
    return std::make_shared<LinuxSerialQueue>(gate_);
  }

  std::uint32_t arc4random() override { return ::arc4random(); }
  std::uint32_t arc4random_uniform(std::uint32_t upperBound) override { return ::arc4random_uniform(upperBound); }

  void exit(int status) override { std::exit(status); }

 private:
  struct MainTimer final : Timer {
    MainTimer(LinuxPlatform& owner, double seconds, std::function<void()> body)
        : platform(owner), interval(std::chrono::duration_cast<Clock::duration>(toDuration(seconds))),
          fire(std::move(body)) {}
    void invalidate() override {
      std::lock_guard lock(platform.mutex_);
      invalidated = true;
    }
    LinuxPlatform& platform;
    Clock::duration interval;
    std::function<void()> fire;
    bool invalidated = false;  // guarded by platform.mutex_
  };

  std::shared_ptr<ExitGate> gate_ = std::make_shared<ExitGate>();
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> mainQueue_;
  // The loop holds its timers, as a run loop does: dropping the returned handle does not stop one.
  std::map<std::pair<Clock::time_point, std::uint64_t>, std::shared_ptr<MainTimer>> timers_;
  std::uint64_t nextSequence_ = 0;
};

}  // namespace

std::shared_ptr<Platform> Platform::makeLinux() { return std::make_shared<LinuxPlatform>(); }

}  // namespace tavrel
