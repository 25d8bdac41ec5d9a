#pragma once

// The sixteen process-wide session globals. They are reached from the game's threads, the main
// thread, the upload worker and the URL session's completion queue, so each one is read and
// written whole: scalars are atomics, texts and the completion are swapped as immutable values.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tavrel {

// A text or null. load() gives a snapshot that a later store() never changes.
class TAVREL_EXPORT SessionString {
 public:
  explicit SessionString(const char* initial);
  SessionString(const SessionString&) = delete;
  SessionString& operator=(const SessionString&) = delete;

  std::shared_ptr<const std::string> load() const;  // null when absent
  std::optional<std::string> get() const;
  void set(std::optional<std::string> value);
  // Absent and empty texts are both empty (NSString length 0). Lock-free.
  bool isEmpty() const { return empty_.load(std::memory_order_acquire); }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const std::string> value_;
  std::atomic<bool> empty_;
};

// A completion or null, held as a copy.
class TAVREL_EXPORT SessionCompletion {
 public:
  SessionCompletion() = default;
  SessionCompletion(const SessionCompletion&) = delete;
  SessionCompletion& operator=(const SessionCompletion&) = delete;

  Completion get() const;
  void set(Completion value);

 private:
  mutable std::mutex mutex_;
  Completion value_;
};

TAVREL_EXPORT extern SessionString _userId;                          // "no-user-id"
TAVREL_EXPORT extern std::atomic<bool> _firstWriteToGameEventFile;    // true
TAVREL_EXPORT extern std::atomic<bool> _firstWriteToInputEventFile;   // true
TAVREL_EXPORT extern std::atomic<std::int64_t> _recordingStartedAt;   // -1
TAVREL_EXPORT extern SessionString _authToken;                       // null
TAVREL_EXPORT extern std::atomic<bool> _validationCallbackSet;        // false
TAVREL_EXPORT extern SessionString _gameEventFilename;               // null
TAVREL_EXPORT extern SessionString _gameEventUrl;                    // null
TAVREL_EXPORT extern SessionString _inputEventFilename;              // null
TAVREL_EXPORT extern std::atomic<bool> _startedEventThread;           // false
TAVREL_EXPORT extern std::atomic<std::int64_t> _lastUpdated;          // 0
TAVREL_EXPORT extern std::atomic<std::int32_t> _eventsSinceLastUpdate;  // 0
TAVREL_EXPORT extern std::atomic<bool> _hasUpdatedGameEvents;         // false
TAVREL_EXPORT extern std::atomic<bool> _hasUpdatedInputEvents;        // false
TAVREL_EXPORT extern SessionString _inputEventUrl;                   // null
TAVREL_EXPORT extern SessionCompletion _validationCallback;          // null

}  // namespace tavrel
