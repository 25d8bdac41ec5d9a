#include <tavrel_sdk/session_globals.hpp>
#include <tavrel_sdk/version.hpp>

namespace tavrel {

SessionString::SessionString(const char* initial)
    : value_(initial ? std::make_shared<const std::string>(initial) : nullptr),
      empty_(initial == nullptr || *initial == '\0') {}

std::shared_ptr<const std::string> SessionString::load() const {
  std::lock_guard lock(mutex_);
  return value_;
}

std::optional<std::string> SessionString::get() const {
  auto value = load();
  if (!value) return std::nullopt;
  return *value;
}

void SessionString::set(std::optional<std::string> value) {
  auto next = value ? std::make_shared<const std::string>(std::move(*value)) : nullptr;
  const bool empty = !next || next->empty();
  std::shared_ptr<const std::string> previous;
  {
    std::lock_guard lock(mutex_);
    previous = std::exchange(value_, std::move(next));
    empty_.store(empty, std::memory_order_release);
  }
  // `previous` is freed outside the lock.
}

Completion SessionCompletion::get() const {
  std::lock_guard lock(mutex_);
  return value_;
}

void SessionCompletion::set(Completion value) {
  Completion previous;
  std::lock_guard lock(mutex_);
  previous = std::exchange(value_, std::move(value));
}

SessionString _userId{"no-user-id"};
std::atomic<bool> _firstWriteToGameEventFile{true};
std::atomic<bool> _firstWriteToInputEventFile{true};
std::atomic<std::int64_t> _recordingStartedAt{-1};
SessionString _authToken{nullptr};
std::atomic<bool> _validationCallbackSet{false};
SessionString _gameEventFilename{nullptr};
SessionString _gameEventUrl{nullptr};
SessionString _inputEventFilename{nullptr};
std::atomic<bool> _startedEventThread{false};
std::atomic<std::int64_t> _lastUpdated{0};
std::atomic<std::int32_t> _eventsSinceLastUpdate{0};
std::atomic<bool> _hasUpdatedGameEvents{false};
std::atomic<bool> _hasUpdatedInputEvents{false};
SessionString _inputEventUrl{nullptr};
SessionCompletion _validationCallback;

}  // namespace tavrel

extern "C" {
const double tavrel_sdkVersionNumber = 1.0;
const unsigned char tavrel_sdkVersionString[] = "@(#)PROGRAM:tavrel_sdk  PROJECT:tavrel-sdk-1\n";
}
