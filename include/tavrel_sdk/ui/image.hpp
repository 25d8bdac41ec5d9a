#pragma once

// UIImage: a decoded picture, immutable, held as premultiplied ARGB32 pixels.
//
// Thread safety: may be decoded on any thread; drawn on the main thread, like every view.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

#include <memory>
#include <string_view>

struct _cairo_surface;  // cairo_surface_t

namespace tavrel {

class TAVREL_EXPORT UIImage {
 public:
  // imageWithData:: PNG bytes; null when they are no PNG or are cut short.
  static std::shared_ptr<UIImage> imageWithData(std::string_view data);

  // In points (scale 1: one pixel a point).
  CGSize size() const;
  int pixelWidth() const;
  int pixelHeight() const;
  // The decoded pixels for drawing; never null.
  _cairo_surface* surface() const { return surface_.get(); }

  explicit UIImage(std::shared_ptr<_cairo_surface> surface);

 private:
  std::shared_ptr<_cairo_surface> surface_;
};

}  // namespace tavrel
