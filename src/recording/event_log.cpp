#include "recording/event_log.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>

#include "platform/files.hpp"
#include "platform/uuid.hpp"
#include "recording/event_format.hpp"

namespace tavrel {
namespace recording {

EventLog& gameEventLog() {
  static EventLog log{"SDK > gameEvents not configured", kGameEventHeader, _gameEventUrl, _gameEventFilename,
                      _firstWriteToGameEventFile, _hasUpdatedGameEvents, {}};
  return log;
}

EventLog& inputEventLog() {
  static EventLog log{"SDK > inputEvents not configured", kInputEventMagic, _inputEventUrl, _inputEventFilename,
                      _firstWriteToInputEventFile, _hasUpdatedInputEvents, {}};
  return log;
}

std::optional<std::int64_t> recordingStartIfConfigured(EventLog& log) {
  const std::int64_t start = _recordingStartedAt.load(std::memory_order_acquire);
  if (log.url.isEmpty() || log.filename.isEmpty() || start < 0) {
    Platform::current().log(log.notConfiguredMessage);
    return std::nullopt;
  }
  return start;
}

void startNewFile(EventLog& log) {
  // Armed before the name is published: a writer that sees the new name also sees the flag.
  log.firstWrite.store(true, std::memory_order_release);
  log.hasUpdated.store(false, std::memory_order_release);
  log.filename.set(makeUuidString() + ".evt");
}

void append(EventLog& log, std::string_view record) {
  Platform& platform = Platform::current();
  auto name = log.filename.load();
  if (log.firstWrite.load(std::memory_order_acquire)) {
    std::lock_guard lock(log.naming);
    // The name armed together with the flag; it may be newer than the one read above.
    name = log.filename.load();
    if (log.firstWrite.load(std::memory_order_relaxed)) {
      if (name) createFileAtPath(appendingPathComponent(platform.documentsDirectory(), *name), log.leader);
      // Cleared whatever the creation did: creation is tried once per file name.
      log.firstWrite.store(false, std::memory_order_release);
    }
  }
  const std::string path = appendingPathComponent(platform.documentsDirectory(), name ? *name : std::string());
  auto file = FileHandle::forWritingAtPath(path);
  if (!file) {
    platform.log("SDK > Failed to open file " + path);
    return;
  }
  file->seekToEndOfFile();
  file->writeData(record);
  file->closeFile();
  log.hasUpdated.store(true, std::memory_order_release);
}

std::string describe(const std::optional<std::string>& text) { return text ? *text : std::string("(null)"); }

}  // namespace recording

using namespace recording;

void TavrelSDK::emitGameEvent(const std::optional<std::string>& data, const std::optional<std::string>& name) {
  EventLog& log = gameEventLog();
  const auto start = recordingStartIfConfigured(log);
  if (!start) return;
  const std::int32_t time = eventTime(Platform::current().currentMilliseconds(), *start);
  append(log, gameEventLine(data, name, time));
}

namespace {

std::mutex rateLimitMutex;

// At most 5 events in a run; a run ends once 1000 ms have passed since its last accepted event.
// The lock keeps the read-test-update of the two globals whole when several threads emit.
bool acceptedByRateLimit(std::int64_t nowMs) {
  std::lock_guard lock(rateLimitMutex);
  const std::int64_t last = _lastUpdated.load(std::memory_order_relaxed);
  const auto sinceLast = static_cast<std::int64_t>(static_cast<std::uint64_t>(nowMs) - static_cast<std::uint64_t>(last));
  if (sinceLast >= 1000) _eventsSinceLastUpdate.store(0, std::memory_order_relaxed);
  const std::int32_t count = _eventsSinceLastUpdate.load(std::memory_order_relaxed);
  if (count >= 5) return false;
  _lastUpdated.store(nowMs, std::memory_order_relaxed);
  _eventsSinceLastUpdate.store(count + 1, std::memory_order_relaxed);
  return true;
}

}  // namespace

void TavrelSDK::emitInputEvent(const std::vector<std::int32_t>& event) { recording::emitInputEvent(event); }

void recording::emitInputEvent(std::span<const std::int32_t> event) {
  // No record can be framed without a count word; such a call leaves everything as it was.
  if (event.empty()) return;
  EventLog& log = inputEventLog();
  const auto start = recordingStartIfConfigured(log);
  if (!start) return;
  const std::int64_t now = Platform::current().currentMilliseconds();
  if (!acceptedByRateLimit(now)) return;
  append(log, inputEventRecord(eventTime(now, *start), event));
}

}  // namespace tavrel
