#include <tavrel_sdk/sdl2_host.hpp>

#include <tavrel_sdk/ui/responder.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrel {
namespace {

[[noreturn]] void throwSdlError(const std::string& what) {
  throw std::runtime_error(what + ": " + SDL_GetError());
}

// Cairo keeps colour premultiplied; SDL's ordinary blending wants it straight.
std::uint32_t straightAlpha(std::uint32_t pixel) {
  const std::uint32_t alpha = pixel >> 24;
  if (alpha == 0xff || alpha == 0) return alpha == 0 ? 0 : pixel;
  const auto channel = [&](int shift) {
    const std::uint32_t value = ((pixel >> shift) & 0xff) * 0xff + alpha / 2;
    return std::min<std::uint32_t>(value / alpha, 0xff) << shift;
  };
  return (alpha << 24) | channel(16) | channel(8) | channel(0);
}

}  // namespace

SdlInput::SdlInput(SDL_Window* window) : windowId_(SDL_GetWindowID(window)) {
  // SDL switches text input on at start-up: keys would come as text (and open an input
  // method's window) while no field wants them.
  SDL_StopTextInput();
}

SdlHost::SdlHost(SDL_Window* window, SDL_Renderer* renderer, double scale)
    : window_(window), renderer_(renderer), input_(window), requestedScale_(scale) {
  readWindowSize();
  // Where the renderer takes this blend mode, pixels go up as Cairo drew them (makeTexture()).
  blendMode_ = SDL_ComposeCustomBlendMode(SDL_BLENDFACTOR_ONE, SDL_BLENDFACTOR_ONE_MINUS_SRC_ALPHA,
                                          SDL_BLENDOPERATION_ADD, SDL_BLENDFACTOR_ONE,
                                          SDL_BLENDFACTOR_ONE_MINUS_SRC_ALPHA, SDL_BLENDOPERATION_ADD);
  if (!makeTexture(static_cast<int>(std::lround(screenSize_.width * scale_)),
                   static_cast<int>(std::lround(screenSize_.height * scale_)))) {
    throwSdlError("SDL_CreateTexture");
  }
}

bool SdlHost::readWindowSize() {
  int width = 0;
  int height = 0;
  SDL_GetWindowSize(window_, &width, &height);
  double scale = requestedScale_;
  if (scale <= 0.0) {
    int pixelWidth = 0;
    int pixelHeight = 0;
    scale = SDL_GetRendererOutputSize(renderer_, &pixelWidth, &pixelHeight) == 0 && width > 0
                ? static_cast<double>(pixelWidth) / width
                : 1.0;
  }
  const CGSize size = CGSizeMake(width, height);
  if (size == screenSize_ && scale == scale_) return false;
  screenSize_ = size;
  scale_ = scale;
  return true;
}

// The texture is left to the renderer, which frees it with itself: at exit a game has usually
// destroyed its renderer before the installed host goes.
SdlHost::~SdlHost() = default;

void SdlHost::composite() {
  renderFrame();
  if (texture_ != nullptr) SDL_RenderCopy(renderer_, texture_, nullptr, nullptr);
  input_.syncTextInput();
}

void SdlHost::presentFrame(const UIFrame& frame) {
  int width = 0;
  int height = 0;
  if (texture_ != nullptr) SDL_QueryTexture(texture_, nullptr, nullptr, &width, &height);
  if (texture_ == nullptr || width != frame.width || height != frame.height) {
    if (texture_ != nullptr) SDL_DestroyTexture(texture_);
    if (!makeTexture(frame.width, frame.height)) return;  // the game's frame shows alone
  }
  if (uploadWholeFrame_) {
    upload(frame, {0, 0, frame.width, frame.height});
    uploadWholeFrame_ = false;
    return;
  }
  for (const PixelRect& rect : frame.damage) upload(frame, rect);
}

bool SdlHost::makeTexture(int width, int height) {
  texture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING, width, height);
  if (texture_ == nullptr) return false;
  // The software renderer has no custom blend modes: straight alpha and its ordinary blending.
  if (SDL_SetTextureBlendMode(texture_, blendMode_) != 0) {
    blendMode_ = SDL_BLENDMODE_BLEND;
    SDL_SetTextureBlendMode(texture_, blendMode_);
  }
  uploadWholeFrame_ = true;
  return true;
}

void SdlHost::upload(const UIFrame& frame, PixelRect rect) {
  const int right = std::min(rect.x + rect.width, frame.width);
  const int bottom = std::min(rect.y + rect.height, frame.height);
  rect.x = std::max(rect.x, 0);
  rect.y = std::max(rect.y, 0);
  if (right <= rect.x || bottom <= rect.y) return;
  const SDL_Rect area{rect.x, rect.y, right - rect.x, bottom - rect.y};
  void* target = nullptr;
  int pitch = 0;
  // A lock hands out the texture's own memory (software renderer) or a staging buffer, so the
  // rows are written once either way; every pixel of the area is written, as a lock requires.
  if (SDL_LockTexture(texture_, &area, &target, &pitch) != 0) return;
  const auto* source = reinterpret_cast<const unsigned char*>(frame.pixels) +
                       static_cast<std::size_t>(area.y) * frame.stride + static_cast<std::size_t>(area.x) * 4;
  auto* destination = static_cast<unsigned char*>(target);
  for (int row = 0; row < area.h; ++row) {
    if (blendsPremultiplied()) {
      std::memcpy(destination, source, static_cast<std::size_t>(area.w) * 4);
    } else {
      const auto* in = reinterpret_cast<const std::uint32_t*>(source);
      auto* out = reinterpret_cast<std::uint32_t*>(destination);
      for (int x = 0; x < area.w; ++x) out[x] = straightAlpha(in[x]);
    }
    source += frame.stride;
    destination += pitch;
  }
  SDL_UnlockTexture(texture_);
}

bool SdlHost::handleEvent(const SDL_Event& event) {
  // A new size, or a screen of another scale (its drawable size changes with it).
  if (event.type == SDL_WINDOWEVENT && event.window.windowID == SDL_GetWindowID(window_) &&
      (event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED || event.window.event == SDL_WINDOWEVENT_DISPLAY_CHANGED) &&
      readWindowSize()) {
    screenChanged();
  }
  switch (event.type) {
    case SDL_RENDER_TARGETS_RESET:
      uploadWholeFrame_ = true;
      return false;
    case SDL_RENDER_DEVICE_RESET:
      // The renderer's textures are gone: the next frame makes a new one and fills it.
      texture_ = nullptr;
      return false;
    default:
      return input_.handleEvent(event);
  }
}

bool SdlInput::handleEvent(const SDL_Event& event) {
  if (event.type == SDL_WINDOWEVENT) {
    // A finger that would never come up otherwise (the window lost the pointer mid-drag).
    if (event.window.windowID == windowId_ && event.window.event == SDL_WINDOWEVENT_FOCUS_LOST) {
      mouse_.cancel();
      std::vector<Finger> fingers;
      for (const auto& [sdlId, id] : fingerIds_) fingers.push_back({id, {}});
      fingerIds_.clear();
      if (!fingers.empty()) UIHost::current().fingersCancelled(fingers);
    }
    return false;
  }
  const bool taken = handleInput(event);
  syncTextInput();
  return taken;
}

bool SdlInput::handleInput(const SDL_Event& event) {
  UIHost& host = UIHost::current();
  const CGSize screen = host.screenSize();
  const bool focused = UIResponder::currentFirstResponder() != nullptr;
  switch (event.type) {
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP: {
      // SDL_TOUCH_MOUSEID: a mouse event SDL made from a touch, which comes as a finger too.
      if (!forThisWindow(event.button.windowID) || event.button.which == SDL_TOUCH_MOUSEID) return false;
      if (event.button.button != SDL_BUTTON_LEFT) return host.isCovered();
      const CGPoint location = CGPointMake(event.button.x, event.button.y);
      return event.type == SDL_MOUSEBUTTONDOWN ? mouse_.press(location) : mouse_.release(location);
    }
    case SDL_MOUSEMOTION:
      if (!forThisWindow(event.motion.windowID) || event.motion.which == SDL_TOUCH_MOUSEID) return false;
      return mouse_.move(CGPointMake(event.motion.x, event.motion.y));
    case SDL_MOUSEWHEEL:
      return forThisWindow(event.wheel.windowID) && host.isCovered();
    case SDL_FINGERDOWN:
    case SDL_FINGERMOTION:
    case SDL_FINGERUP:
      // SDL_MOUSE_TOUCHID: a finger SDL made from the mouse, which comes as a mouse event too.
      if (event.tfinger.touchId == SDL_MOUSE_TOUCHID || !forThisWindow(event.tfinger.windowID)) return false;
      return handleFinger(static_cast<SDL_EventType>(event.type), {event.tfinger.touchId, event.tfinger.fingerId},
                          CGPointMake(event.tfinger.x * screen.width, event.tfinger.y * screen.height));
    case SDL_TEXTINPUT:
      if (!forThisWindow(event.text.windowID)) return false;
      return host.typeText(event.text.text) || host.isCovered();
    case SDL_TEXTEDITING:
      return forThisWindow(event.edit.windowID) && (focused || host.isCovered());
    case SDL_KEYDOWN:
    case SDL_KEYUP: {
      if (!forThisWindow(event.key.windowID)) return false;
      bool taken = false;
      if (event.type == SDL_KEYDOWN) {
        const SDL_Keycode key = event.key.keysym.sym;
        if ((key == SDLK_RETURN || key == SDLK_KP_ENTER) && event.key.repeat == 0) taken = host.pressReturn();
        if (key == SDLK_BACKSPACE) taken = host.pressBackspace();
      }
      return taken || focused || host.isCovered();
    }
    default:
      return false;
  }
}

bool SdlInput::handleFinger(SDL_EventType type, TouchFinger finger, CGPoint location) {
  UIHost& host = UIHost::current();
  auto it = fingerIds_.find(finger);
  if (type == SDL_FINGERDOWN) {
    if (it != fingerIds_.end()) return host.isCovered();
    it = fingerIds_.emplace(finger, nextFingerId_++).first;
    return host.fingersDown({{it->second, location}}) || host.isCovered();
  }
  if (it == fingerIds_.end()) return host.isCovered();  // went down before the host was there
  const std::vector<Finger> fingers{{it->second, location}};
  if (type == SDL_FINGERMOTION) return host.fingersMoved(fingers) || host.isCovered();
  fingerIds_.erase(it);
  return host.fingersUp(fingers) || host.isCovered();
}

void SdlInput::syncTextInput() {
  UIResponder* responder = UIResponder::currentFirstResponder();
  const bool focused = responder != nullptr;
  if (focused == fieldFocused_) return;
  fieldFocused_ = focused;
  if (!focused) {
    SDL_StopTextInput();
    return;
  }
  // Where an input method shows its candidates: under the field.
  if (const auto* view = dynamic_cast<const UIView*>(responder)) {
    const CGRect rect = view->convertRectToView(view->bounds(), nullptr);
    SDL_Rect area{static_cast<int>(rect.origin.x), static_cast<int>(rect.origin.y),
                  static_cast<int>(rect.size.width), static_cast<int>(rect.size.height)};
    SDL_SetTextInputRect(&area);
  }
  SDL_StartTextInput();
}

SdlSessionWindow::SdlSessionWindow(const std::string& title, CGSize screenSize, double scale) {
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) throwSdlError("SDL_InitSubSystem");
  window_ = SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                             static_cast<int>(std::lround(screenSize.width)),
                             static_cast<int>(std::lround(screenSize.height)), SDL_WINDOW_SHOWN);
  if (window_ != nullptr) renderer_ = SDL_CreateRenderer(window_, -1, 0);
  if (renderer_ == nullptr) {
    const std::string error = SDL_GetError();
    if (window_ != nullptr) SDL_DestroyWindow(window_);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    throw std::runtime_error("cannot open a window: " + error);
  }
  // A frame drawn at a scale above 1 is shown smaller: filtered, not dropped pixels.
  SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
  host_ = std::make_shared<SdlHost>(window_, renderer_, scale);
}

SdlSessionWindow::~SdlSessionWindow() {
  if (&UIHost::current() == host_.get()) {
    UIHost::install(std::make_shared<HeadlessHost>(host_->screenSize(), host_->screenScale()));
  }
  host_.reset();
  SDL_DestroyRenderer(renderer_);
  SDL_DestroyWindow(window_);
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

bool SdlSessionWindow::showFrame() {
  SDL_Event event;
  while (!closed_ && SDL_PollEvent(&event) != 0) {
    closed_ = event.type == SDL_QUIT ||
              (event.type == SDL_WINDOWEVENT && event.window.event == SDL_WINDOWEVENT_CLOSE);
    host_->handleEvent(event);
  }
  if (closed_) return false;
  SDL_SetRenderDrawColor(renderer_, 0, 0, 0, 255);
  SDL_RenderClear(renderer_);
  host_->composite();
  SDL_RenderPresent(renderer_);
  return true;
}

}  // namespace tavrel
