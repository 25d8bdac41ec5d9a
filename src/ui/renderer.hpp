#pragma once

// The host's renderer: draws the key window's tree with Cairo into one premultiplied ARGB32
// buffer, again only where something changed since the last frame.
//
// Each view whose class draws content of its own (overrides drawRect) keeps that drawing in a
// backing store at the screen's scale, as the platform's layers do: drawRect runs again only
// when the view asked for it (setNeedsDisplay, setNeedsDisplayInRect: that part alone), its
// size or the scale changed. A frame composites the kept pixels at whole device pixels, so
// moving a view, its alpha or hidden costs a copy, not a drawing. A view that leaves the tree
// lets go of its store at the next frame.
//
// Each frame walks the tree into a flat list of what each visible view looks like on screen
// (its rectangle, clip, effective alpha and displayVersion) in paint order. The list is
// compared with the last frame's: a view that appeared, went, changed or changed its stacking
// damages its old and new rectangles (one that draws only its store, moved: the store's ink
// there); one that only marked a part of its content to draw
// again (setNeedsDisplayInRect) damages that part. The damage is cleared to transparent and
// every view that reaches into it is drawn again, clipped to it, so the pixels come out the
// same as if the whole frame had been drawn.
//
// Thread safety: main thread only.

#include <tavrel_sdk/ui/host.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <cairo.h>
#include <pixman.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <typeindex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tavrel {

// One visible view as drawn in a frame.
struct RenderEntry {
  const UIView* view = nullptr;  // a view that died since may have left its address to another
  std::uint64_t displayVersion = 0;
  std::uint64_t layerVersion = 0;
  CGRect rect;      // on screen in points, within `clip`
  CGPoint contentOrigin;  // where the view's bounds origin lies on screen
  CGRect clip;      // what the ancestors' masksToBounds leave
  double alpha = 1.0;  // times the ancestors'
  CGRect subtreeRect;  // the union of this view's and its descendants' rects
  std::size_t subtreeEnd = 0;  // the index after this view's last descendant
  bool sitsSame(const RenderEntry& other) const {
    return rect == other.rect && contentOrigin == other.contentOrigin && clip == other.clip && alpha == other.alpha;
  }
};


// What happened to views since a renderer last looked: a frame looks for views that left its
// window only after some view joined or left one, and for an address another view took only
// after a view died. Main thread only, as the views.
struct ViewTreeChanges {
  static constexpr std::size_t kDeathsKept = 64;
  std::uint64_t changes = 0;  // a view joined or left a window, or died
  std::uint64_t deaths = 0;
  std::array<const UIView*, kDeathsKept> died{};  // the latest, the n-th at n % kDeathsKept
  void viewDied(const UIView* view) {
    ++changes;
    died[deaths++ % kDeathsKept] = view;
  }
};
ViewTreeChanges& viewTreeChanges();

// Pixels kept between frames.
struct BackingStore {
  BackingStore();
  BackingStore(const BackingStore&) = delete;
  BackingStore& operator=(const BackingStore&) = delete;
  ~BackingStore();

  cairo_surface_t* surface = nullptr;
  pixman_image_t* image = nullptr;  // the same pixels, for laying them down without Cairo
  int width = 0, height = 0;  // pixels
  double scale = 0.0;
  CGPoint origin;             // the bounds origin it was drawn for
  std::uint64_t version = 0;  // what it shows: the view's displayVersion() (layerVersion() + 1 for a background)
  const std::uint64_t id;        // never another store's, even after this one went
  std::uint64_t generation = 0;  // counts the drawings: a GPU copy of an older one is stale
  PixelRect ink;  // what holds a pixel not transparent: laying down the rest changes nothing
  std::size_t bytes() const;
  // A surface of width × height pixels; true when it was made anew (cleared). `total` follows.
  bool resize(int width, int height, std::size_t& total);
};

// What one view keeps: its drawRect's pixels, and its layer's rounded background (a touch
// mark moved is then a copy, not a path filled again).
struct KeptDrawing {
  std::weak_ptr<const UIResponder> owner;  // a dead view's address may be reused
  BackingStore content;
  BackingStore background;
  BackingStore flat;  // for a layer host: the view's whole subtree where it is not laid as quads
  std::size_t bytes() const { return content.bytes() + background.bytes() + flat.bytes(); }
};

// Reached when UIView's own drawRect() runs: a class that keeps it draws nothing of its own.
bool& baseDrawRectReached();

// The stores of one renderer's views.
class BackingStores {
 public:
  // The store of `view` as it should show now, drawn again where needed; null for a view
  // whose class draws nothing, or of no size.
  const BackingStore* storeFor(UIView& view, double scale);
  // Where the store of `view` holds pixels not transparent, when it shows what the view would
  // draw now; else null.
  std::optional<PixelRect> inkOf(const UIView& view) const;
  // The view's background with its rounded corners, alpha not applied; null when the view has
  // no size or is large.
  const BackingStore* backgroundFor(const UIView& view, double scale);
  // The store a layer host takes for `view`'s whole subtree.
  BackingStore& flatFor(const UIView& view, int width, int height);
  // Lets go of the stores of views no longer in `window`'s tree.
  void freeOffTheTree(const UIWindow* window);
  std::size_t bytes() const { return bytes_; }
  std::size_t bytesOf(const UIView& view) const;

 private:
  KeptDrawing& keptFor(const UIView& view);

  std::unordered_map<const UIView*, std::unique_ptr<KeptDrawing>> stores_;
  std::size_t bytes_ = 0;
  // What freeOffTheTree() last saw: with no change of the trees since, no store is to free.
  std::uint64_t freedAt_ = ~std::uint64_t{0};
  const UIWindow* freedFor_ = nullptr;
  std::unordered_map<std::type_index, bool> drawsContent_;  // by class, found on first use
};

// A frame's working lists, kept for the next one's.
struct FrameBuffers {
  std::vector<RenderEntry> entries;
  std::vector<std::pair<const UIView*, std::size_t>> oldIndex;  // by view: the last frame's entries
  std::vector<bool> matched;
  std::vector<PixelRect> painted;  // what a frame has drawn so far
};

struct UIHost::Renderer {
  Renderer() = default;
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // Draws the key window's tree for a screen of `size` points at `scale`.
  const UIFrame& render(CGSize size, double scale);
  // The same tree as layers (UIHost::renderLayers()).
  const UILayerFrame& renderLayers(CGSize size, double scale);
  // Forgets the last frame: the next one is drawn whole.
  void reset();

  cairo_surface_t* surface = nullptr;
  pixman_image_t* image = nullptr;  // the surface's pixels
  UIFrame frame;
  std::vector<RenderEntry> previous;
  std::uint64_t previousDeaths = 0;  // viewTreeChanges().deaths when `previous` was taken
  FrameBuffers buffers;
  UILayerFrame layers;
  BackingStores stores;
};

}  // namespace tavrel
