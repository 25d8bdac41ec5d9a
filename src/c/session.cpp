// The game's calls and its set-up, forwarded to TavrelSDK and Platform.

#include <tavrel_sdk/tavrel.h>
#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui/application.hpp>

#include "c/boundary.hpp"
#include "platform/json.hpp"
#include "recording/event_log.hpp"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <limits>

struct tavrel_screen {
  std::shared_ptr<tavrel::UIWindow> window;
};

using tavrel::Platform;
using tavrel::TavrelSDK;
using tavrel::c::Call;
using tavrel::c::guarded;

namespace {

TavrelSDK& sdk() { return TavrelSDK::sharedInstance(); }

std::atomic<tavrel_callback_delivery> delivery{TAVREL_DELIVER_WHERE_THEY_ARISE};

// A call into the game: now, or from the main loop when the game asked for that and this is
// another thread (a runtime such as Mono or LuaJIT cannot be entered from a thread it does not know).
template <class Fn>
void deliver(Fn&& call) {
  if (delivery.load() == TAVREL_DELIVER_ON_MAIN_LOOP && !tavrel::c::onMainThreadNow()) {
    Platform::current().dispatchAsyncMain(std::forward<Fn>(call));
  } else {
    call();
  }
}

tavrel::Completion completionFor(tavrel_completion completion, void* userData) {
  if (!completion) return nullptr;
  return [completion, userData](bool ok) { deliver([completion, userData, ok] { completion(ok, userData); }); };
}

std::shared_ptr<tavrel::UIViewController> controllerOf(const tavrel_screen* screen) {
  return screen ? screen->window->rootViewController() : nullptr;
}

// A setting of the platform that takes one UTF-8 string.
template <class Setter>
tavrel_status setText(const char* function, const char* text, const char* name, Setter set) {
  return guarded(function, [&](const Call& call) {
    std::string value;
    if (const tavrel_status status = call.text(text, name, value)) return status;
    set(Platform::current(), std::move(value));
    return TAVREL_OK;
  });
}

}  // namespace

const char* tavrel_status_text(tavrel_status status) {
  switch (status) {
    case TAVREL_OK: return "ok";
    case TAVREL_ERROR_NULL_ARGUMENT: return "null argument";
    case TAVREL_ERROR_INVALID_UTF8: return "invalid UTF-8";
    case TAVREL_ERROR_OUT_OF_RANGE: return "out of range";
    case TAVREL_ERROR_INVALID_ARGUMENT: return "invalid argument";
    case TAVREL_ERROR_WRONG_THREAD: return "wrong thread";
    case TAVREL_ERROR_NOT_READY: return "not ready";
    case TAVREL_ERROR_TOO_LATE: return "too late";
    case TAVREL_ERROR_FAILED: return "failed";
    case TAVREL_STATUS_MAX_ENUM: break;
  }
  return "unknown status";
}

void tavrel_free(void* memory) { std::free(memory); }

// --- Set-up ----------------------------------------------------------------------------------

tavrel_status tavrel_set_documents_directory(const char* path) {
  return setText("tavrel_set_documents_directory", path, "path",
                 [](Platform& p, std::string v) { p.setDocumentsDirectory(std::move(v)); });
}

tavrel_status tavrel_set_info_dictionary_json(const char* json) {
  return guarded("tavrel_set_info_dictionary_json", [&](const Call& call) {
    std::string text;
    if (const tavrel_status status = call.text(json, "json", text)) return status;
    if (!tavrel::parseJson(text).is_object()) return call.fail(TAVREL_ERROR_INVALID_ARGUMENT, "json is not a JSON object");
    Platform::current().setInfoDictionaryJson(std::move(text));
    return TAVREL_OK;
  });
}

tavrel_status tavrel_set_trusted_certificates_file(const char* pem_path) {
  return setText("tavrel_set_trusted_certificates_file", pem_path, "pem_path",
                 [](Platform& p, std::string v) { p.setTrustedCertificatesFile(std::move(v)); });
}

tavrel_status tavrel_set_service_base_url_for_testing(const char* base_url) {
  return setText("tavrel_set_service_base_url_for_testing", base_url, "base_url",
                 [](Platform& p, std::string v) { p.setServiceBaseUrlForTesting(std::move(v)); });
}

void tavrel_set_log_callback(tavrel_log_callback callback, void* user_data) {
  guarded("tavrel_set_log_callback", [&](const Call&) {
    if (!callback) {
      Platform::current().setLogSink(nullptr);
    } else {
      Platform::current().setLogSink([callback, user_data](std::string_view line) {
        deliver([callback, user_data, terminated = std::string(line)] { callback(terminated.c_str(), user_data); });
      });
    }
    return TAVREL_OK;
  });
}

void tavrel_set_log_to_stderr(bool enabled) {
  guarded("tavrel_set_log_to_stderr", [&](const Call&) {
    Platform::current().setLogToStderr(enabled);
    return TAVREL_OK;
  });
}

int tavrel_last_error(char* buffer, size_t size) {
  // Copied before the call's own refusal (a bad buffer) could replace it.
  const std::string line = tavrel::c::lastError();
  return guarded("tavrel_last_error", [&](const Call& call) { return tavrel::c::copyOut(call, line, buffer, size); });
}

tavrel_status tavrel_set_callback_delivery(tavrel_callback_delivery mode) {
  return guarded("tavrel_set_callback_delivery", [&](const Call& call) {
    if (mode != TAVREL_DELIVER_WHERE_THEY_ARISE && mode != TAVREL_DELIVER_ON_MAIN_LOOP) {
      return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "delivery must be TAVREL_DELIVER_WHERE_THEY_ARISE or TAVREL_DELIVER_ON_MAIN_LOOP");
    }
    delivery.store(mode);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_run_main_loop_for(double seconds) {
  return guarded("tavrel_run_main_loop_for", [&](const Call& call) {
    if (const tavrel_status status = call.onMainThread()) return status;
    if (!(seconds >= 0.0 && seconds <= 3600.0)) return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "seconds must be 0 to 3600");
    Platform::current().runMainLoopFor(seconds);
    return TAVREL_OK;
  });
}

// --- The screen ------------------------------------------------------------------------------

tavrel_status tavrel_screen_new(tavrel_screen** out) {
  return guarded("tavrel_screen_new", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(out, "out")) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    auto window = std::make_shared<tavrel::UIWindow>();
    window->setRootViewController(std::make_shared<tavrel::UIViewController>());
    window->makeKeyAndVisible();
    // The application's window too, as a game's main window is: a NULL controller finds it.
    auto& application = tavrel::UIApplication::sharedApplication();
    if (!application.delegate()) application.setDelegate(std::make_shared<tavrel::UIApplicationDelegate>());
    application.delegate()->setWindow(window);
    *out = new tavrel_screen{std::move(window)};
    return TAVREL_OK;
  });
}

void tavrel_screen_free(tavrel_screen* screen) { tavrel::c::release("tavrel_screen_free", screen); }

// --- The game's calls ------------------------------------------------------------------------

tavrel_status tavrel_set_auth_token(const char* token) {
  return guarded("tavrel_set_auth_token", [&](const Call& call) {
    std::optional<std::string> value;
    if (const tavrel_status status = call.optionalText(token, "token", value)) return status;
    sdk().setAuthToken(value);
    return TAVREL_OK;
  });
}

int tavrel_get_timestamp(char* buffer, size_t size) {
  return guarded("tavrel_get_timestamp",
                 [&](const Call& call) { return tavrel::c::copyOut(call, TavrelSDK::getTimestamp(), buffer, size); });
}

int tavrel_get_user_id(char* buffer, size_t size) {
  return guarded("tavrel_get_user_id",
                 [&](const Call& call) { return tavrel::c::copyOut(call, TavrelSDK::getUserId(), buffer, size); });
}

tavrel_status tavrel_process_url_request(const char* url) {
  return guarded("tavrel_process_url_request", [&](const Call& call) {
    std::string value;
    if (const tavrel_status status = call.text(url, "url", value)) return status;
    sdk().processUrlRequest(value);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_set_view_controller(tavrel_screen* screen) {
  return guarded("tavrel_set_view_controller", [&](const Call& call) {
    if (const tavrel_status status = call.onMainThread()) return status;
    sdk().setViewController(controllerOf(screen));
    return TAVREL_OK;
  });
}

tavrel_status tavrel_show_overlay(tavrel_screen* screen) {
  return guarded("tavrel_show_overlay", [&](const Call& call) {
    if (const tavrel_status status = call.onMainThread()) return status;
    sdk().showOverlay(controllerOf(screen));
    return TAVREL_OK;
  });
}

tavrel_status tavrel_initialise_overlay(tavrel_screen* screen, const char* token) {
  return guarded("tavrel_initialise_overlay", [&](const Call& call) {
    std::optional<std::string> value;
    if (const tavrel_status status = call.optionalText(token, "token", value)) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    sdk().initialiseOverlay(controllerOf(screen), value);
    return TAVREL_OK;
  });
}

namespace {

template <class Switch>
tavrel_status switchOverlay(const char* function, Switch on) {
  return guarded(function, [&](const Call& call) {
    if (const tavrel_status status = call.onMainThread()) return status;
    if (!sdk().overlayView()) return call.fail(TAVREL_ERROR_NOT_READY, "no overlay yet: call tavrel_initialise_overlay first");
    on(sdk());
    return TAVREL_OK;
  });
}

}  // namespace

tavrel_status tavrel_show_touches(void) {
  return switchOverlay("tavrel_show_touches", [](TavrelSDK& s) { s.showTouches(); });
}

tavrel_status tavrel_show_watermark(void) {
  return switchOverlay("tavrel_show_watermark", [](TavrelSDK& s) { s.showWatermark(); });
}

tavrel_status tavrel_validate(tavrel_completion completion, void* user_data) {
  return guarded("tavrel_validate", [&](const Call&) {
    sdk().validate(completionFor(completion, user_data));
    return TAVREL_OK;
  });
}

tavrel_status tavrel_show_login_page(tavrel_completion completion, void* user_data) {
  return guarded("tavrel_show_login_page", [&](const Call&) {
    sdk().showLoginPage(completionFor(completion, user_data));
    return TAVREL_OK;
  });
}

tavrel_status tavrel_dismiss_login_page(void) {
  return guarded("tavrel_dismiss_login_page", [&](const Call&) {
    sdk().dismissLoginPage();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_is_login_page_visible(bool* visible) {
  return guarded("tavrel_is_login_page_visible", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(visible, "visible")) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    *visible = sdk().isLoginPageVisible();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_emit_game_event(const char* data, const char* name) {
  return guarded("tavrel_emit_game_event", [&](const Call& call) {
    std::optional<std::string> dataText, nameText;
    if (const tavrel_status status = call.optionalText(data, "data", dataText)) return status;
    if (const tavrel_status status = call.optionalText(name, "name", nameText)) return status;
    sdk().emitGameEvent(dataText, nameText);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_emit_input_event(const int32_t* words, size_t count) {
  return guarded("tavrel_emit_input_event", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(words, "words")) return status;
    if (count == 0 || count > static_cast<size_t>(std::numeric_limits<std::int32_t>::max())) {
      return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "count must be at least 1");
    }
    // A record whose count word disagrees with its length would cost a reader its place in the file.
    if (static_cast<size_t>(words[0]) != count - 1 || words[0] < 0) {
      return call.fail(TAVREL_ERROR_INVALID_ARGUMENT, "words[0] must be count - 1, the number of words after it");
    }
    tavrel::recording::emitInputEvent(std::span<const std::int32_t>(words, count));
    return TAVREL_OK;
  });
}

void tavrel_terminate(void) {
  guarded("tavrel_terminate", [](const Call&) {
    sdk().terminate();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_terminate_with_popup(void) {
  return guarded("tavrel_terminate_with_popup", [&](const Call&) {
    sdk().terminateWithPopup();
    return TAVREL_OK;
  });
}
