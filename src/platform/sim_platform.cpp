#include "platform/sim_platform.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <variant>

namespace tavrel {
namespace {

// How long advance() waits in real time for the system to settle before it reports a hang.
constexpr std::chrono::seconds kSettleWatchdog{120};

}  // namespace

struct SimPlatform::State {
  struct Sleeper {
    bool woken = false;
    bool seam = false;  // counted in `busy` while awake
  };

  struct SimTimer final : Timer {
    SimTimer(std::weak_ptr<State> owner, double seconds, std::function<void()> body)
        : state(std::move(owner)), interval(seconds), fire(std::move(body)) {}
    void invalidate() override {
      if (auto s = state.lock()) {
        std::lock_guard lock(s->mutex);
        invalidated = true;
      }
    }
    std::weak_ptr<State> state;
    double interval;
    std::function<void()> fire;
    bool invalidated = false;  // guarded by State::mutex
  };

  struct Queue {
    std::deque<std::function<void()>> blocks;
    bool active = false;    // counted in `busy`: a block is queued or running
    bool released = false;  // the DispatchQueue handle is gone: drain, then end
  };

  // The URL session's wake-up at a virtual time; only the latest one counts.
  struct NetworkWake {
    std::function<void()> wake;
  };

  using Event = std::variant<std::shared_ptr<SimTimer>, std::shared_ptr<Sleeper>, std::shared_ptr<NetworkWake>>;

  explicit State(const Options& o) : options(o) {
    std::seed_seq seed{static_cast<std::uint32_t>(o.seed), static_cast<std::uint32_t>(o.seed >> 32)};
    random.seed(seed);
  }

  std::mutex mutex;
  std::condition_variable changed;
  Options options;
  double monotonic = 0;  // virtual seconds since creation
  double wallStep = 0;   // stepWallClock() total
  std::uint64_t sequence = 0;
  std::deque<std::function<void()>> mainQueue;
  std::map<std::pair<double, std::uint64_t>, Event> agenda;
  int busy = 0;  // seam threads awake + active queues + requests in flight
  int requests = 0;                                    // requests in flight, counted in `busy` too
  std::chrono::steady_clock::time_point networkMoved;  // real time of the last sign of life
  std::shared_ptr<NetworkWake> networkWake;
  bool shuttingDown = false;
  std::vector<std::thread> threads;
  std::optional<std::thread::id> mainThread;
  std::mt19937 random;
  std::deque<std::uint32_t> script;
  std::vector<std::string> log;
  std::optional<int> exitStatus;

  void schedule(double due, Event event) { agenda.emplace(std::make_pair(due, sequence++), std::move(event)); }

  // Drains the main queue and waits until nothing else is running. Called with the lock held.
  void settle(std::unique_lock<std::mutex>& lock) {
    for (;;) {
      while (!mainQueue.empty()) {
        auto block = std::move(mainQueue.front());
        mainQueue.pop_front();
        lock.unlock();
        block();
        lock.lock();
      }
      using std::chrono::steady_clock;
      // Only silent requests left: they wait for the virtual clock, not the other way round.
      const auto silentSince = [&] { return networkMoved + options.silentNetworkAfter; };
      const auto done = [&] {
        return busy == 0 || !mainQueue.empty() || shuttingDown ||
               (busy == requests && steady_clock::now() >= silentSince());
      };
      const auto watchdog = steady_clock::now() + kSettleWatchdog;
      while (!done() && steady_clock::now() < watchdog) {
        changed.wait_until(lock, busy == requests ? std::min(watchdog, silentSince()) : watchdog);
      }
      const bool settled = done();
      if (!settled) {
        throw std::runtime_error("SimPlatform: the system did not settle within 120 s of real time (" +
                                 std::to_string(busy) + " activities still running)");
      }
      if (mainQueue.empty()) return;
    }
  }
};

namespace {
thread_local const void* seamThreadOf = nullptr;
}

class SimSerialQueue final : public DispatchQueue {
 public:
  SimSerialQueue(std::shared_ptr<SimPlatform::State> state, std::shared_ptr<SimPlatform::State::Queue> queue)
      : state_(std::move(state)), queue_(std::move(queue)) {}
  ~SimSerialQueue() override {
    std::lock_guard lock(state_->mutex);
    queue_->released = true;
    state_->changed.notify_all();
  }
  void async(std::function<void()> block) override {
    std::lock_guard lock(state_->mutex);
    if (state_->shuttingDown) return;
    queue_->blocks.push_back(std::move(block));
    if (!queue_->active) {
      queue_->active = true;
      ++state_->busy;
    }
    state_->changed.notify_all();
  }

 private:
  std::shared_ptr<SimPlatform::State> state_;
  std::shared_ptr<SimPlatform::State::Queue> queue_;
};

std::shared_ptr<SimPlatform> SimPlatform::create(Options options) {
  return std::shared_ptr<SimPlatform>(new SimPlatform(options));
}

SimPlatform::SimPlatform(Options options) : state_(std::make_shared<State>(options)) {
  setLogToStderr(options.logToStderr);
}

SimPlatform::~SimPlatform() { shutdown(); }

void SimPlatform::shutdown() {
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(state_->mutex);
    if (!state_->shuttingDown) {
      state_->shuttingDown = true;
      state_->changed.notify_all();
    }
    threads = std::move(state_->threads);
    state_->threads.clear();
  }
  shutDownUrlSession();
  for (auto& thread : threads) {
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();
    } else if (thread.joinable()) {
      thread.join();
    }
  }
}

double SimPlatform::elapsed() {
  std::lock_guard lock(state_->mutex);
  return state_->monotonic;
}

void SimPlatform::advance(double seconds) {
  std::unique_lock lock(state_->mutex);
  if (!state_->mainThread) state_->mainThread = std::this_thread::get_id();
  const double target = state_->monotonic + std::max(0.0, seconds);
  for (;;) {
    state_->settle(lock);
    if (state_->shuttingDown || state_->agenda.empty() || state_->agenda.begin()->first.first > target) break;
    auto node = state_->agenda.extract(state_->agenda.begin());
    state_->monotonic = std::max(state_->monotonic, node.key().first);
    if (auto* timer = std::get_if<std::shared_ptr<State::SimTimer>>(&node.mapped())) {
      auto fired = *timer;
      if (fired->invalidated) continue;
      state_->schedule(node.key().first + fired->interval, fired);
      lock.unlock();
      fired->fire();
      lock.lock();
    } else if (auto* wake = std::get_if<std::shared_ptr<State::NetworkWake>>(&node.mapped())) {
      if (*wake != state_->networkWake) continue;
      auto fired = *wake;
      // The session reacts in real time: wait for it as for a request that moved.
      state_->networkMoved = std::chrono::steady_clock::now();
      lock.unlock();
      fired->wake();
      lock.lock();
    } else {
      auto& sleeper = std::get<std::shared_ptr<State::Sleeper>>(node.mapped());
      sleeper->woken = true;
      if (sleeper->seam) ++state_->busy;
      state_->changed.notify_all();
    }
  }
  state_->monotonic = std::max(state_->monotonic, target);
}

void SimPlatform::runUntilIdle() {
  std::unique_lock lock(state_->mutex);
  if (!state_->mainThread) state_->mainThread = std::this_thread::get_id();
  state_->settle(lock);
}

void SimPlatform::runMainLoopFor(double seconds) { advance(seconds); }

void SimPlatform::stepWallClock(double seconds) {
  std::lock_guard lock(state_->mutex);
  state_->wallStep += seconds;
}

void SimPlatform::scriptRandom(std::vector<std::uint32_t> values) {
  std::lock_guard lock(state_->mutex);
  state_->script.insert(state_->script.end(), values.begin(), values.end());
}

std::vector<std::string> SimPlatform::logLines() {
  std::lock_guard lock(state_->mutex);
  return state_->log;
}

void SimPlatform::clearLog() {
  std::lock_guard lock(state_->mutex);
  state_->log.clear();
}

std::optional<int> SimPlatform::exitStatus() {
  std::lock_guard lock(state_->mutex);
  return state_->exitStatus;
}

double SimPlatform::timeIntervalSince1970() {
  std::lock_guard lock(state_->mutex);
  return state_->options.startTime + state_->monotonic + state_->wallStep;
}

void SimPlatform::sleepForTimeInterval(double seconds) {
  std::unique_lock lock(state_->mutex);
  const bool seam = seamThreadOf == state_.get();
  if (!seam && state_->mainThread == std::this_thread::get_id()) {
    throw std::logic_error("SimPlatform: the main thread cannot sleep; it is the one that moves time");
  }
  if (state_->shuttingDown) {
    if (seam) throw ThreadCancelled{};
    return;
  }
  auto sleeper = std::make_shared<State::Sleeper>();
  sleeper->seam = seam;
  state_->schedule(state_->monotonic + std::max(0.0, seconds), sleeper);
  if (seam) {
    --state_->busy;
    state_->changed.notify_all();
  }
  state_->changed.wait(lock, [&] { return sleeper->woken || state_->shuttingDown; });
  if (!sleeper->woken && seam) throw ThreadCancelled{};
}

void SimPlatform::dispatchAsyncMain(std::function<void()> block) {
  std::lock_guard lock(state_->mutex);
  state_->mainQueue.push_back(std::move(block));
  state_->changed.notify_all();
}

std::shared_ptr<Timer> SimPlatform::scheduledTimer(double interval, std::function<void()> fire) {
  auto timer = std::make_shared<State::SimTimer>(state_, std::max(interval, 0.0001), std::move(fire));
  std::lock_guard lock(state_->mutex);
  state_->schedule(state_->monotonic + timer->interval, timer);
  return timer;
}

void SimPlatform::detachThread(std::function<void()> body) {
  std::lock_guard lock(state_->mutex);
  if (state_->shuttingDown) return;
  ++state_->busy;
  state_->threads.emplace_back([state = state_, body = std::move(body)] {
    seamThreadOf = state.get();
    try {
      body();
    } catch (const ThreadCancelled&) {
    }
    std::lock_guard lock(state->mutex);
    --state->busy;
    state->changed.notify_all();
  });
}

std::shared_ptr<DispatchQueue> SimPlatform::makeSerialQueue(std::string) {
  auto queue = std::make_shared<State::Queue>();
  std::lock_guard lock(state_->mutex);
  if (!state_->shuttingDown) {
    state_->threads.emplace_back([state = state_, queue] {
      seamThreadOf = state.get();
      std::unique_lock lock(state->mutex);
      for (;;) {
        state->changed.wait(lock, [&] { return !queue->blocks.empty() || queue->released || state->shuttingDown; });
        if (state->shuttingDown || queue->blocks.empty()) break;
        auto block = std::move(queue->blocks.front());
        queue->blocks.pop_front();
        lock.unlock();
        try {
          block();
        } catch (const ThreadCancelled&) {
          lock.lock();
          break;
        }
        lock.lock();
        if (queue->blocks.empty()) {
          queue->active = false;
          --state->busy;
          state->changed.notify_all();
        }
      }
      if (queue->active) {
        queue->active = false;
        --state->busy;
        state->changed.notify_all();
      }
    });
  }
  return std::make_shared<SimSerialQueue>(state_, queue);
}

std::uint32_t SimPlatform::arc4random() {
  std::lock_guard lock(state_->mutex);
  if (!state_->script.empty()) {
    const std::uint32_t value = state_->script.front();
    state_->script.pop_front();
    return value;
  }
  return static_cast<std::uint32_t>(state_->random());
}

std::uint32_t SimPlatform::arc4random_uniform(std::uint32_t upperBound) {
  {
    std::lock_guard lock(state_->mutex);
    if (!state_->script.empty()) {
      const std::uint32_t value = state_->script.front();
      state_->script.pop_front();
      return upperBound < 2 ? 0 : value % upperBound;
    }
  }
  if (upperBound < 2) return 0;
  // Rejection keeps the draw uniform, as arc4random_uniform does.
  const std::uint32_t minimum = (0u - upperBound) % upperBound;
  for (;;) {
    const std::uint32_t r = arc4random();
    if (r >= minimum) return r % upperBound;
  }
}

void SimPlatform::exit(int status) {
  std::lock_guard lock(state_->mutex);
  state_->exitStatus = status;
}

void SimPlatform::networkActivityBegan() {
  std::lock_guard lock(state_->mutex);
  ++state_->busy;
  ++state_->requests;
  state_->networkMoved = std::chrono::steady_clock::now();
}

void SimPlatform::networkActivityEnded() {
  std::lock_guard lock(state_->mutex);
  --state_->busy;
  --state_->requests;
  state_->changed.notify_all();
}

void SimPlatform::networkActivityProgressed() {
  std::lock_guard lock(state_->mutex);
  state_->networkMoved = std::chrono::steady_clock::now();
}

double SimPlatform::networkClock() {
  return elapsed();
}

void SimPlatform::wakeNetworkAt(double time, std::function<void()> wake) {
  auto event = std::make_shared<State::NetworkWake>(State::NetworkWake{std::move(wake)});
  std::lock_guard lock(state_->mutex);
  state_->networkWake = event;
  state_->schedule(std::max(time, state_->monotonic), std::move(event));
}

void SimPlatform::onLog(std::string_view message) {
  std::lock_guard lock(state_->mutex);
  state_->log.emplace_back(message);
}

}  // namespace tavrel
