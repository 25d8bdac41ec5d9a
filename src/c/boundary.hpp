#pragma once

// What every C function does at the boundary: check its arguments and thread, log one line
// naming itself and the problem, and keep C++ exceptions on this side.

#include <tavrel_sdk/tavrel.h>
#include <tavrel_sdk/ui/host.hpp>

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct tavrel_host {
  std::shared_ptr<tavrel::UIHost> host;
  std::vector<tavrel_rect> damage;  // the last frame's, for the tavrel_frame handed out
};

namespace tavrel::c {

class Call {
 public:
  explicit Call(const char* function) : function_(function) {}

  // Logs "function: problem" and returns the status.
  tavrel_status fail(tavrel_status status, std::string_view problem) const noexcept;

  tavrel_status notNull(const void* pointer, std::string_view name) const noexcept;
  // A UTF-8 string copied in; NULL refused.
  tavrel_status text(const char* in, std::string_view name, std::string& out) const;
  // The same, NULL given as absent.
  tavrel_status optionalText(const char* in, std::string_view name, std::optional<std::string>& out) const;
  tavrel_status onMainThread() const noexcept;
  tavrel_status host(const tavrel_host* handle) const noexcept { return notNull(handle, "host"); }

 private:
  const char* function_;
};

// Whether the caller is the main thread the C interface knows (false before it is fixed).
bool onMainThreadNow() noexcept;

// The line of the last refusal on this thread ("" before any).
const std::string& lastError() noexcept;

// Runs body(call) with every exception turned into TAVREL_ERROR_FAILED and its log line.
template <class Body>
auto guarded(const char* function, Body&& body) noexcept -> decltype(body(std::declval<const Call&>())) {
  const Call call(function);
  try {
    return body(call);
  } catch (const std::exception& error) {
    return call.fail(TAVREL_ERROR_FAILED, error.what());
  } catch (...) {
    return call.fail(TAVREL_ERROR_FAILED, "unknown exception");
  }
}

// Deletes a handle of views on the main thread; on another thread it is kept, and logged.
template <class Handle>
void release(const char* function, Handle* handle) noexcept {
  guarded(function, [&](const Call& call) {
    if (!handle) return TAVREL_OK;
    if (const tavrel_status status = call.onMainThread()) return status;
    delete handle;
    return TAVREL_OK;
  });
}

// snprintf's convention: the whole length, the text cut to size - 1 bytes and terminated.
int copyOut(const Call& call, std::string_view text, char* buffer, std::size_t size);

// The frame as C sees it; damage is copied into storage, which must outlive the result.
tavrel_frame describe(const UIFrame& frame, std::vector<tavrel_rect>& storage);

}  // namespace tavrel::c
