#pragma once

// The two event logs as one shape, so that set-up, the writers and the upload worker treat the
// game event file and the input event file alike. Internal to the library.
//
// Thread safety: every function may be called from any thread at any time. A log's URL, file name
// and first-write flag change together under `naming`, and the file is created under it too, so
// the header or magic is written once per file name, before any record, however many threads
// emit at once, and the worker never pairs a new URL with an old file.

#include <tavrel_sdk/session_globals.hpp>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tavrel::recording {

struct EventLog {
  std::string_view notConfiguredMessage;
  std::string_view leader;  // the header or magic that opens the file
  SessionString& url;
  SessionString& filename;
  std::atomic<bool>& firstWrite;
  std::atomic<bool>& hasUpdated;
  std::mutex naming;
};

EventLog& gameEventLog();
EventLog& inputEventLog();

// The recording start when the log has a URL, a file name and a start of 0 or more; otherwise
// logs the log's "not configured" line and returns null.
std::optional<std::int64_t> recordingStartIfConfigured(EventLog& log);

// Gives the log a new file name and arms its first write, so the next accepted event starts the
// new file with its header or magic. The new file has nothing to upload yet: its flag is cleared.
// REQUIRES: log.naming held.
void startNewFile(EventLog& log);

// Appends one whole record: creates the file first when the first write is armed, then one
// open, seek, write and close; sets the log's changed flag. Logs "Failed to open file" when the
// file cannot be opened.
void append(EventLog& log, std::string_view record);

// TavrelSDK::emitInputEvent over any run of words in memory: the C interface's arrays go in
// without a copy.
void emitInputEvent(std::span<const std::int32_t> event);

// "%@" of a text: the text, or "(null)" when absent.
std::string describe(const std::optional<std::string>& text);

}  // namespace tavrel::recording
