#include "c/boundary.hpp"

#include <tavrel_sdk/platform.hpp>

#include "platform/strings.hpp"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <thread>

namespace tavrel::c {

namespace {

// The thread of the first main-thread call; the library has no other way to know it before
// the main loop runs, and the game makes its screen before that.
std::atomic<std::thread::id> mainThread{};

thread_local std::string lastErrorLine;

}  // namespace

tavrel_status Call::fail(tavrel_status status, std::string_view problem) const noexcept {
  try {
    std::string line = function_;
    line += ": ";
    line += problem;
    lastErrorLine = line;
    Platform::current().log(line);
  } catch (...) {
    // Out of memory while reporting: the status still says what went wrong.
  }
  return status;
}

tavrel_status Call::notNull(const void* pointer, std::string_view name) const noexcept {
  if (pointer) return TAVREL_OK;
  try {
    return fail(TAVREL_ERROR_NULL_ARGUMENT, std::string(name) + " is NULL");
  } catch (...) {
    return TAVREL_ERROR_NULL_ARGUMENT;
  }
}

tavrel_status Call::text(const char* in, std::string_view name, std::string& out) const {
  if (const tavrel_status status = notNull(in, name)) return status;
  std::string_view view(in);
  if (!isValidUtf8(view)) return fail(TAVREL_ERROR_INVALID_UTF8, std::string(name) + " is not valid UTF-8");
  out.assign(view);
  return TAVREL_OK;
}

tavrel_status Call::optionalText(const char* in, std::string_view name, std::optional<std::string>& out) const {
  if (!in) {
    out.reset();
    return TAVREL_OK;
  }
  std::string copy;
  if (const tavrel_status status = text(in, name, copy)) return status;
  out = std::move(copy);
  return TAVREL_OK;
}

tavrel_status Call::onMainThread() const noexcept {
  const auto self = std::this_thread::get_id();
  std::thread::id expected{};
  if (mainThread.compare_exchange_strong(expected, self) || expected == self) return TAVREL_OK;
  return fail(TAVREL_ERROR_WRONG_THREAD,
              "main thread only, called on another thread (the main thread is the one that made the "
              "first main-thread call or ran tavrel_run_main_loop_for)");
}

bool onMainThreadNow() noexcept { return mainThread.load() == std::this_thread::get_id(); }

const std::string& lastError() noexcept { return lastErrorLine; }

int copyOut(const Call& call, std::string_view text, char* buffer, std::size_t size) {
  if (!buffer && size > 0) return call.fail(TAVREL_ERROR_NULL_ARGUMENT, "buffer is NULL with a size above 0");
  if (size > 0) {
    const std::size_t n = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
  }
  return static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX));
}

tavrel_frame describe(const UIFrame& frame, std::vector<tavrel_rect>& storage) {
  storage.clear();
  for (const PixelRect& r : frame.damage) storage.push_back({r.x, r.y, r.width, r.height});
  return tavrel_frame{frame.pixels, frame.width, frame.height, frame.stride, frame.scale, storage.data(),
                      storage.size()};
}

}  // namespace tavrel::c
