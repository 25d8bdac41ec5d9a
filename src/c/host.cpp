// The host from C: a host made here for a game's own frames, any host's frames and input,
// and the bridge for hosts written in C++.

#include <tavrel_sdk/tavrel.h>
#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/host.hpp>

#include "c/boundary.hpp"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

using tavrel::UIHost;
using tavrel::c::Call;
using tavrel::c::guarded;

namespace {

// A host whose frames go to a C callback.
class CallbackHost final : public tavrel::HeadlessHost {
 public:
  CallbackHost(tavrel::CGSize size, double scale, tavrel_frame_callback onFrame, void* userData)
      : HeadlessHost(size, scale), onFrame_(onFrame), userData_(userData) {}

 protected:
  void presentFrame(const tavrel::UIFrame& frame) override {
    if (!onFrame_) return;
    const tavrel_frame described = tavrel::c::describe(frame, damage_);
    onFrame_(&described, userData_);
  }

 private:
  tavrel_frame_callback onFrame_;
  void* userData_;
  std::vector<tavrel_rect> damage_;
};

// The checks every host call makes: a host, the main thread.
template <class Body>
tavrel_status onHost(const char* function, tavrel_host* host, Body&& body) {
  return guarded(function, [&](const Call& call) {
    if (const tavrel_status status = call.host(host)) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    return body(call, *host->host);
  });
}

// Input that answers with whether the library took it; taken may be NULL.
template <class Input>
tavrel_status input(const char* function, tavrel_host* host, bool* taken, Input&& deliver) {
  return onHost(function, host, [&](const Call& call, UIHost& ui) {
    bool result = false;
    if (const tavrel_status status = deliver(call, ui, result)) return status;
    if (taken) *taken = result;
    return TAVREL_OK;
  });
}

using FingerInput = bool (UIHost::*)(const std::vector<tavrel::Finger>&);

tavrel_status fingers(const char* function, tavrel_host* host, const tavrel_finger* fingers, size_t count,
                      bool* taken, FingerInput member) {
  return input(function, host, taken, [&](const Call& call, UIHost& ui, bool& result) {
    if (const tavrel_status status = call.notNull(fingers, "fingers")) return status;
    if (count < 1 || count > 64) return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "count must be 1 to 64");
    std::vector<tavrel::Finger> set;
    set.reserve(count);
    for (size_t i = 0; i < count; ++i) {
      if (!std::isfinite(fingers[i].x) || !std::isfinite(fingers[i].y)) {
        return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "a finger's x and y must be finite");
      }
      set.push_back({fingers[i].id, {fingers[i].x, fingers[i].y}});
    }
    result = (ui.*member)(set);
    return TAVREL_OK;
  });
}

tavrel_status screenInRange(const Call& call, double width, double height, double scale) {
  const auto inRange = [](double v, double low, double high) { return v >= low && v <= high; };
  if (!inRange(width, 1, 16384) || !inRange(height, 1, 16384) || !(scale > 0 && scale <= 8) ||
      width * scale > 32767 || height * scale > 32767) {
    return call.fail(TAVREL_ERROR_OUT_OF_RANGE,
                     "width and height must be 1 to 16384 points, scale above 0 and at most 8, "
                     "the frame at most 32767 pixels a side");
  }
  return TAVREL_OK;
}

// Bytes into memory the caller releases with tavrel_free; text gets a terminating NUL.
char* handOut(const std::string& bytes) {
  auto* memory = static_cast<char*>(std::malloc(bytes.size() + 1));
  if (!memory) throw std::bad_alloc();
  std::memcpy(memory, bytes.data(), bytes.size());
  memory[bytes.size()] = '\0';
  return memory;
}

}  // namespace

namespace tavrel {

tavrel_host* hostForC(std::shared_ptr<UIHost> host) noexcept {
  if (!host) return nullptr;
  return new (std::nothrow) tavrel_host{std::move(host), {}};
}

std::shared_ptr<UIHost> hostFromC(const tavrel_host* host) noexcept { return host ? host->host : nullptr; }

}  // namespace tavrel

tavrel_status tavrel_host_new(double width, double height, double scale, tavrel_frame_callback on_frame,
                              void* user_data, tavrel_host** out) {
  return guarded("tavrel_host_new", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(out, "out")) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    if (const tavrel_status status = screenInRange(call, width, height, scale)) return status;
    auto host = std::make_shared<CallbackHost>(tavrel::CGSize{width, height}, scale, on_frame, user_data);
    *out = new tavrel_host{std::move(host), {}};
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_resize(tavrel_host* host, double width, double height, double scale) {
  return onHost("tavrel_host_resize", host, [&](const Call& call, UIHost& ui) {
    auto* own = dynamic_cast<tavrel::HeadlessHost*>(&ui);
    if (!own) return call.fail(TAVREL_ERROR_INVALID_ARGUMENT, "host was not made by tavrel_host_new: use its library's resize call");
    if (const tavrel_status status = screenInRange(call, width, height, scale)) return status;
    own->resize({width, height}, scale);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_current(tavrel_host** out) {
  return guarded("tavrel_host_current", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(out, "out")) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    *out = new tavrel_host{UIHost::currentShared(), {}};
    return TAVREL_OK;
  });
}

void tavrel_host_free(tavrel_host* host) { tavrel::c::release("tavrel_host_free", host); }

tavrel_status tavrel_install_host(tavrel_host* host) {
  return onHost("tavrel_install_host", host, [&](const Call& call, UIHost&) {
    if (tavrel::UIApplication::sharedApplication().keyWindow()) {
      return call.fail(TAVREL_ERROR_TOO_LATE, "a screen is shown already: install the host before tavrel_screen_new");
    }
    UIHost::install(host->host);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_screen_size(tavrel_host* host, double* width, double* height, double* scale) {
  return onHost("tavrel_host_screen_size", host, [&](const Call&, UIHost& ui) {
    const tavrel::CGSize size = ui.screenSize();
    if (width) *width = size.width;
    if (height) *height = size.height;
    if (scale) *scale = ui.screenScale();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_render_frame(tavrel_host* host, tavrel_frame* frame) {
  return onHost("tavrel_host_render_frame", host, [&](const Call& call, UIHost& ui) {
    if (const tavrel_status status = call.notNull(frame, "frame")) return status;
    *frame = tavrel::c::describe(ui.renderFrame(), host->damage);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_frame_copy_pixels(const tavrel_frame* frame, tavrel_pixel_format format, bool whole,
                                       void* pixels, int stride) {
  return guarded("tavrel_frame_copy_pixels", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(frame, "frame")) return status;
    if (const tavrel_status status = call.notNull(pixels, "pixels")) return status;
    if (frame->damage_count > 0 && !frame->damage) return call.fail(TAVREL_ERROR_NULL_ARGUMENT, "frame->damage is NULL");
    if (stride < frame->width * 4) return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "stride must be at least width * 4");
    if (format < TAVREL_PIXELS_BGRA_PREMULTIPLIED || format > TAVREL_PIXELS_RGBA_STRAIGHT) {
      return call.fail(TAVREL_ERROR_OUT_OF_RANGE, "format must be a tavrel_pixel_format");
    }
    static_assert(sizeof(tavrel_rect) == sizeof(tavrel::PixelRect));
    const tavrel::PixelRect all{0, 0, frame->width, frame->height};
    const auto* rects = whole ? &all : reinterpret_cast<const tavrel::PixelRect*>(frame->damage);
    tavrel::copyPixels(frame->pixels, frame->stride, frame->width, frame->height, rects, whole ? 1 : frame->damage_count,
                       pixels, stride, static_cast<tavrel::PixelFormat>(format));
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_render_png(tavrel_host* host, unsigned char** data, size_t* size) {
  return onHost("tavrel_host_render_png", host, [&](const Call& call, UIHost& ui) {
    if (const tavrel_status status = call.notNull(data, "data")) return status;
    if (const tavrel_status status = call.notNull(size, "size")) return status;
    const std::string png = ui.renderPNG();
    if (png.empty()) return call.fail(TAVREL_ERROR_FAILED, "the frame could not be encoded");
    *data = reinterpret_cast<unsigned char*>(handOut(png));
    *size = png.size();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_write_png(tavrel_host* host, const char* path) {
  return onHost("tavrel_host_write_png", host, [&](const Call& call, UIHost& ui) {
    std::string file;
    if (const tavrel_status status = call.text(path, "path", file)) return status;
    if (!ui.writePNG(file)) return call.fail(TAVREL_ERROR_FAILED, "could not write " + file);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_fingers_down(tavrel_host* host, const tavrel_finger* f, size_t count, bool* taken) {
  return fingers("tavrel_host_fingers_down", host, f, count, taken, &UIHost::fingersDown);
}

tavrel_status tavrel_host_fingers_moved(tavrel_host* host, const tavrel_finger* f, size_t count, bool* taken) {
  return fingers("tavrel_host_fingers_moved", host, f, count, taken, &UIHost::fingersMoved);
}

tavrel_status tavrel_host_fingers_up(tavrel_host* host, const tavrel_finger* f, size_t count, bool* taken) {
  return fingers("tavrel_host_fingers_up", host, f, count, taken, &UIHost::fingersUp);
}

tavrel_status tavrel_host_fingers_cancelled(tavrel_host* host, const tavrel_finger* f, size_t count, bool* taken) {
  return fingers("tavrel_host_fingers_cancelled", host, f, count, taken, &UIHost::fingersCancelled);
}

tavrel_status tavrel_host_type_text(tavrel_host* host, const char* utf8, bool* taken) {
  return input("tavrel_host_type_text", host, taken, [&](const Call& call, UIHost& ui, bool& result) {
    std::string text;
    if (const tavrel_status status = call.text(utf8, "utf8", text)) return status;
    result = ui.typeText(text);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_press_return(tavrel_host* host, bool* taken) {
  return input("tavrel_host_press_return", host, taken, [](const Call&, UIHost& ui, bool& result) {
    result = ui.pressReturn();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_press_backspace(tavrel_host* host, bool* taken) {
  return input("tavrel_host_press_backspace", host, taken, [](const Call&, UIHost& ui, bool& result) {
    result = ui.pressBackspace();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_tap_element(tavrel_host* host, const char* text, bool* tapped) {
  return input("tavrel_host_tap_element", host, tapped, [&](const Call& call, UIHost& ui, bool& result) {
    std::string label;
    if (const tavrel_status status = call.text(text, "text", label)) return status;
    result = ui.tapElement(label);
    return TAVREL_OK;
  });
}

tavrel_status tavrel_host_is_covered(tavrel_host* host, bool* covered) {
  return onHost("tavrel_host_is_covered", host, [&](const Call& call, UIHost& ui) {
    if (const tavrel_status status = call.notNull(covered, "covered")) return status;
    *covered = ui.isCovered();
    return TAVREL_OK;
  });
}

tavrel_status tavrel_dump_view_tree(char** json) {
  return guarded("tavrel_dump_view_tree", [&](const Call& call) {
    if (const tavrel_status status = call.notNull(json, "json")) return status;
    if (const tavrel_status status = call.onMainThread()) return status;
    *json = handOut(tavrel::dumpViewTree());
    return TAVREL_OK;
  });
}
