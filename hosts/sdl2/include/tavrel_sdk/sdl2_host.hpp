#pragma once

// The library's views in an SDL2 window, the way a Linux game shows them.
//
// The game keeps its window, its SDL_Renderer and its loop. Each frame it draws its own scene,
// calls SdlHost::composite() to lay the library's views (overlay, login page, alerts) over it,
// and presents. It hands every SDL event to SdlHost::handleEvent() first and ignores those the
// library took. Link tavrel::tavrel_sdk_sdl2 (find_package(tavrel_sdk CONFIG COMPONENTS sdl2)).
//
// Thread safety: main thread only, the thread that made the window and the renderer, as SDL
// itself requires.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/host.hpp>

#include <SDL.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace tavrel {

// SDL events of one window for the installed host, whatever draws it: SdlHost, or an OpenGL
// compositor in a window with an OpenGL context. The left mouse button and SDL touch fingers
// are fingers; text input and Return, keypad Enter and Backspace are keyboard input for a
// focused field. Text input is switched off when the adapter is made, then on exactly while a
// field of the library has the focus (SDL_StartTextInput / SDL_StopTextInput).
//
// Thread safety: main thread only.
class TAVREL_EXPORT SdlInput {
 public:
  explicit SdlInput(SDL_Window* window);
  SdlInput(const SdlInput&) = delete;
  SdlInput& operator=(const SdlInput&) = delete;

  // Forwards one event; true when the library took it and the game should ignore it: input
  // that reached a page or an alert, any input while one covers the game, keys while a field
  // has the focus.
  bool handleEvent(const SDL_Event& event);
  // Text input on or off as the focus stands now (handleEvent() does it too).
  void syncTextInput();

 private:
  // Events of another window of the game are not ours; 0 is SDL's "no window focused".
  bool forThisWindow(std::uint32_t windowId) const { return windowId == 0 || windowId == windowId_; }
  bool handleInput(const SDL_Event& event);
  // A finger's id is its touch device's own: two devices may both have a finger 0.
  using TouchFinger = std::pair<SDL_TouchID, SDL_FingerID>;
  bool handleFinger(SDL_EventType type, TouchFinger finger, CGPoint location);

  std::uint32_t windowId_;
  MouseFinger mouse_;
  bool fieldFocused_ = false;
  std::map<TouchFinger, int> fingerIds_;  // SDL's touch fingers down, by the ids the toolkit sees
  int nextFingerId_ = 1;                  // 0 is the mouse
};

class TAVREL_EXPORT SdlHost final : public UIHost {
 public:
  // Shows the toolkit in `window`, drawn through the game's `renderer`; neither is owned and
  // both must outlive the host's use (its texture belongs to the renderer, which frees it).
  // The screen is the window's size in points, read again on each change of it that
  // handleEvent() sees; `scale` 0 takes the renderer's output size over the window size (1 but
  // on HiDPI), another value stays. Install it with UIHost::install()
  // before any view is made. Throws std::runtime_error when the renderer cannot make a
  // streaming texture.
  SdlHost(SDL_Window* window, SDL_Renderer* renderer, double scale = 0.0);
  ~SdlHost() override;
  SdlHost(const SdlHost&) = delete;
  SdlHost& operator=(const SdlHost&) = delete;

  CGSize screenSize() const override { return screenSize_; }
  double screenScale() const override { return scale_; }

  // Renders what changed in the toolkit, uploads only those pixels, and copies the toolkit's
  // frame over the whole of the renderer's current target. Call after drawing the game's
  // frame and before SDL_RenderPresent().
  void composite();

  // Follows the window's changes of size and scale (the toolkit is laid out again and the next
  // frame goes up whole), keeps its texture through render resets, and forwards the rest to an
  // SdlInput of the window: true when the library took the event and the game should ignore it.
  bool handleEvent(const SDL_Event& event);

  // Whether the renderer takes the toolkit's premultiplied pixels as they are (a blend mode of
  // its own); otherwise they are converted to straight alpha on upload.
  bool blendsPremultiplied() const { return blendMode_ != SDL_BLENDMODE_BLEND; }

 protected:
  void presentFrame(const UIFrame& frame) override;

 private:
  // The window's size and scale; true when either changed.
  bool readWindowSize();
  bool makeTexture(int width, int height);
  void upload(const UIFrame& frame, PixelRect rect);

  SDL_Window* window_;
  SDL_Renderer* renderer_;
  SdlInput input_;
  double requestedScale_;  // 0: the renderer's output size over the window size
  CGSize screenSize_;
  double scale_ = 0.0;
  SDL_Texture* texture_ = nullptr;
  SDL_BlendMode blendMode_ = SDL_BLENDMODE_BLEND;
  bool uploadWholeFrame_ = true;
};

// A window for a session that has no game of its own (tavrel run --window): the window, its
// renderer and a host, and the one call a frame loop on the real clock makes after each frame,
// which shows the frame and lets a player take over with mouse and keyboard at any moment.
//
// Thread safety: main thread only.
class TAVREL_EXPORT SdlSessionWindow {
 public:
  // Opens a window of `screenSize` points and makes a host on it whose frames are drawn at
  // `scale` and shown scaled to the window. Install host() before any view is made. Throws
  // std::runtime_error when no window can be opened (no display).
  SdlSessionWindow(const std::string& title, CGSize screenSize, double scale = 1.0);
  // If its host is still the installed one, a headless host of the same screen takes over
  // first; then the window closes.
  ~SdlSessionWindow();
  SdlSessionWindow(const SdlSessionWindow&) = delete;
  SdlSessionWindow& operator=(const SdlSessionWindow&) = delete;

  const std::shared_ptr<SdlHost>& host() const { return host_; }
  // Hands the pending events to the host, then composites the toolkit's frame over black and
  // presents it. Returns false once the player has closed the window.
  bool showFrame();

 private:
  SDL_Window* window_ = nullptr;
  SDL_Renderer* renderer_ = nullptr;
  std::shared_ptr<SdlHost> host_;
  bool closed_ = false;
};

}  // namespace tavrel
