#pragma once

// The host's renderer: draws the key window's tree with Cairo into one premultiplied ARGB32
// buffer, again only where something changed since the last frame.
//
// Each frame walks the tree into a flat list of what each visible view looks like on screen
// (its rectangle, clip, effective alpha and displayVersion) in paint order. The list is
// compared with the last frame's: a view that appeared, went, changed or changed its stacking
// damages its old and new rectangles; one that only marked a part of its content to draw
// again (setNeedsDisplayInRect) damages that part. The damage is cleared to transparent and
// every view that reaches into it is drawn again, clipped to it, so the pixels come out the
// same as if the whole frame had been drawn.
//
// Thread safety: main thread only.

#include <tavrel_sdk/ui/host.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <cairo.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tavrel {

// One visible view as drawn in a frame.
struct RenderEntry {
  const UIView* view = nullptr;
  std::weak_ptr<const UIResponder> alive;  // a dead view's address may be reused
  bool shared = false;                     // held by a shared_ptr when seen, so `alive` tells
  std::uint64_t displayVersion = 0;
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


struct UIHost::Renderer {
  Renderer() = default;
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // Draws the key window's tree for a screen of `size` points at `scale`.
  const UIFrame& render(CGSize size, double scale);
  // Forgets the last frame: the next one is drawn whole.
  void reset();

  cairo_surface_t* surface = nullptr;
  UIFrame frame;
  std::vector<RenderEntry> previous;
};

}  // namespace tavrel
