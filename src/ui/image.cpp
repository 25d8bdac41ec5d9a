#include <tavrel_sdk/ui/image.hpp>

#include <cairo.h>

#include <cstring>

namespace tavrel {

namespace {

struct PngReader {
  std::string_view data;
  std::size_t offset = 0;
};

cairo_status_t readPngBytes(void* closure, unsigned char* out, unsigned int length) {
  auto* reader = static_cast<PngReader*>(closure);
  if (reader->data.size() - reader->offset < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(out, reader->data.data() + reader->offset, length);
  reader->offset += length;
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

std::shared_ptr<UIImage> UIImage::imageWithData(std::string_view data) {
  PngReader reader{data};
  cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(readPngBytes, &reader);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  return std::make_shared<UIImage>(std::shared_ptr<cairo_surface_t>(surface, cairo_surface_destroy));
}

UIImage::UIImage(std::shared_ptr<_cairo_surface> surface) : surface_(std::move(surface)) {}

CGSize UIImage::size() const { return {static_cast<double>(pixelWidth()), static_cast<double>(pixelHeight())}; }
int UIImage::pixelWidth() const { return cairo_image_surface_get_width(surface_.get()); }
int UIImage::pixelHeight() const { return cairo_image_surface_get_height(surface_.get()); }

}  // namespace tavrel
