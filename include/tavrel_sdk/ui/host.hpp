#pragma once

// The toolkit's one contact with the outside: the screen, frames out, input in.
//
// A host says how big the screen is and at what scale it is drawn, and shows the frames the
// toolkit renders. The headless host (the default, and the simulation's) keeps frames in
// memory and renders them on demand; hosts/sdl2 shows them in a window. Input from tests, the
// tavrel tool and a windowed host goes through the same members of UIHost.
//
// Thread safety: main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel {

class UIView;

// A rectangle of whole pixels.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool operator==(const PixelRect&) const = default;
};

// A rendered frame: premultiplied ARGB32 pixels in native byte order (Cairo's
// CAIRO_FORMAT_ARGB32), the screen's size times its scale.
struct UIFrame {
  const std::uint32_t* pixels = nullptr;
  int width = 0;
  int height = 0;
  int stride = 0;  // in bytes
  double scale = 1.0;
  // What was drawn again for this frame, in pixels, as rectangles that do not overlap; the
  // whole frame for the first one.
  std::vector<PixelRect> damage;
};

// One piece of what a compositor of the host's own lays down, back to front (renderLayers()):
// a view's kept pixels, or a rectangle of one colour. Pixel units, frame row 0 at the top.
struct UILayer {
  // Kept pixels: `id` names one store for as long as it lives and is never used again after;
  // `generation` changes whenever its pixels or size do, so a texture made from it is good
  // until then. A rectangle of one colour: id 0, no pixels.
  std::uint64_t id = 0;
  std::uint64_t generation = 0;
  const std::uint32_t* pixels = nullptr;  // premultiplied ARGB32 in native byte order, as UIFrame's
  int stride = 0;                         // in bytes
  PixelRect rect;                         // where it lies on the frame; the pixels' size
  PixelRect clip;                         // the part of the frame it may cover
  double opacity = 1.0;                   // laid down at this fraction
  std::uint32_t color = 0;                // premultiplied 0xAARRGGBB of a rectangle of one colour
};

// The frame as layers: laid down in order, over transparent pixels, with premultiplied blending
// (one, one minus source alpha), each at whole pixels, they make the pixels of UIFrame.
struct UILayerFrame {
  int width = 0;
  int height = 0;
  double scale = 1.0;
  std::vector<UILayer> layers;
};

// A finger at a point of the screen, in points. `id` is the host's name for the finger and
// stays the same from down to up.
struct Finger {
  int id = 0;
  CGPoint location;
};

class TAVREL_EXPORT UIHost {
 public:
  virtual ~UIHost();

  // The installed host; a headless 390 × 844 screen at scale 3 when none was installed.
  static UIHost& current();
  // The same host, shared: for a caller that keeps it (the C interface hands it out).
  static const std::shared_ptr<UIHost>& currentShared();
  // Replaces the host. Call at start-up, on the main thread, before any view is made.
  static void install(std::shared_ptr<UIHost> host);

  // --- The screen -------------------------------------------------------------------------
  virtual CGSize screenSize() const = 0;  // points
  virtual double screenScale() const = 0;

  // --- Frames out -------------------------------------------------------------------------
  // Draws what changed in the key window's tree (presented controllers and alerts included)
  // since the last frame, hands the frame to presentFrame() and returns it. The pixels stay
  // valid until the next render.
  const UIFrame& renderFrame();
  // For a host that composites on its own (a GPU keeping each store as a texture): the same
  // tree, walked the same way, as the ordered layers that make the frame, instead of their
  // pixels laid down on the CPU. A layer's pixels stay valid until the next render of either
  // kind. Where a part of the tree cannot be laid as quads (a group with a fraction of alpha, a
  // border, rounded corners that clip, a large rounded background) that part is one layer, drawn
  // again when something in it changes. renderFrame() keeps working beside it.
  const UILayerFrame& renderLayers();
  // Renders, then writes the whole frame as a PNG (colour type 6, straight alpha). False on failure.
  bool writePNG(const std::string& path);
  // Renders, then returns the whole frame as the bytes of such a PNG; empty on failure.
  std::string renderPNG();

  // --- Input in ---------------------------------------------------------------------------
  // Fingers down, moved, up or cancelled; several fingers in one call arrive as one set of
  // touches. Each returns whether the toolkit's own views took the touches: true when they
  // landed on a presented controller (a page or an alert), so a host game that draws for
  // itself should ignore them.
  bool fingersDown(const std::vector<Finger>& fingers);
  bool fingersMoved(const std::vector<Finger>& fingers);
  bool fingersUp(const std::vector<Finger>& fingers);
  bool fingersCancelled(const std::vector<Finger>& fingers);
  // Keyboard input for the first responder; false when nothing has the focus.
  bool typeText(std::string_view utf8);
  bool pressReturn();
  bool pressBackspace();
  // For scripts: a tap (down and up) at the centre of the frontmost visible element that
  // shows `text` as a button title, label text, field text or placeholder, or alert button.
  // False when none a finger could reach shows it: while a page or alert covers the game only
  // its elements count, and an element's centre must lie on the screen.
  bool tapElement(std::string_view text);
  // For scripts: the texts tapElement() could tap now, front to back.
  std::vector<std::string> reachableTexts() const;
  // Whether a presented controller covers the game now.
  bool isCovered() const;

  // --- Memory -----------------------------------------------------------------------------
  // What the views' backing stores hold, in bytes: every store, or `view`'s own (0 for a view
  // that draws nothing of its own, or that has not been drawn). A store is freed at the first
  // frame after its view left the key window's tree.
  std::size_t backingStoreBytes() const;
  std::size_t backingStoreBytes(const UIView& view) const;

 protected:
  UIHost();
  // A windowed host shows the frame; the headless host keeps it.
  virtual void presentFrame(const UIFrame& /*frame*/) {}
  // Called by a host once screenSize() or screenScale() answers anew: the key window takes the
  // new bounds, its root controller's view, the overlay (its watermark's canvas with it) and
  // every presented controller's view follow and are laid out again, and the next frame is
  // drawn whole at the new size and scale.
  void screenChanged();

 private:
  struct Renderer;
  std::unique_ptr<Renderer> renderer_;
};

// A windowed host's mouse as the finger 0 of the installed host: the left button down, the
// pointer moving while it is down, the button up. Each returns whether the library took the
// input, as UIHost's finger members do, and true for anything while a page or alert covers the
// game (a second press, a release or a move with the button up included).
class TAVREL_EXPORT MouseFinger {
 public:
  bool press(CGPoint location);
  bool move(CGPoint location);
  bool release(CGPoint location);
  // The window lost the pointer with the button down: the finger is cancelled. False when the
  // button was up.
  bool cancel();
  bool isDown() const { return down_; }

 private:
  bool down_ = false;
};

// Keeps its frames; a subclass may show them (presentFrame()).
class TAVREL_EXPORT HeadlessHost : public UIHost {
 public:
  HeadlessHost(CGSize screenSize, double scale);
  CGSize screenSize() const override { return screenSize_; }
  double screenScale() const override { return scale_; }
  // The screen changed size or scale (see screenChanged()); nothing happens when neither did.
  void resize(CGSize screenSize, double scale);

 private:
  CGSize screenSize_;
  double scale_;
};

// How a buffer of the caller's holds pixels: what an engine's texture or a blit takes.
enum class PixelFormat {
  bgraPremultiplied,  // the frame's own bytes (Unity's BGRA32, a shader that swaps red and blue)
  rgbaPremultiplied,  // RGBA8 under a premultiplied blend (OpenGL, LÖVE, pygame's BLEND_PREMULTIPLIED)
  rgbaStraight,       // RGBA8 under the usual alpha blend
};

// Copies the rectangles `rects` (clipped to width × height) of premultiplied ARGB32 pixels into
// `to`, a buffer of the same width and height, `toStride` bytes a row, in `format`. Other
// pixels of `to` are left as they are, so a buffer kept from frame to frame stays whole when
// only the damage is copied. Any thread.
TAVREL_EXPORT void copyPixels(const std::uint32_t* from, int fromStride, int width, int height,
                              const PixelRect* rects, std::size_t count, void* to, int toStride,
                              PixelFormat format);

// The key window's tree as JSON text, the way the platform's view debugger shows it: the
// window, its root view controller, each controller's view (null while not loaded) and
// presented controller, each view with its subviews back to front. "null" without a key window.
TAVREL_EXPORT std::string dumpViewTree();

}  // namespace tavrel
