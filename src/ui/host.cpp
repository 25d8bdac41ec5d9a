#include <tavrel_sdk/ui/host.hpp>

#include <tavrel_sdk/ui/application.hpp>

#include "ui/renderer.hpp"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <vector>

namespace tavrel {

namespace {

std::shared_ptr<UIHost>& installedHost() {
  static std::shared_ptr<UIHost> host;
  return host;
}

void appendBytes(png_structp png, png_bytep data, png_size_t length) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), length);
}

// Kept free of C++ objects with destructors: libpng reports errors by longjmp.
bool encode(const UIFrame& frame, std::string* out, png_byte* row) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  if (!png) return false;
  png_infop info = png_create_info_struct(png);
  if (!info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, out, appendBytes, nullptr);
  // Fast enough to write a frame per test: level 1 and one cheap filter.
  png_set_compression_level(png, 1);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
  png_set_IHDR(png, info, static_cast<png_uint_32>(frame.width), static_cast<png_uint_32>(frame.height), 8,
               PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
  png_write_info(png, info);
  const auto* base = reinterpret_cast<const unsigned char*>(frame.pixels);
  for (int y = 0; y < frame.height; ++y) {
    const PixelRect line{0, 0, frame.width, 1};
    copyPixels(reinterpret_cast<const std::uint32_t*>(base + static_cast<std::ptrdiff_t>(y) * frame.stride),
               frame.stride, frame.width, 1, &line, 1, row, frame.width * 4, PixelFormat::rgbaStraight);
    png_write_row(png, row);
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

UIHost::UIHost() : renderer_(std::make_unique<Renderer>()) {}
UIHost::~UIHost() = default;

UIHost& UIHost::current() { return *currentShared(); }

const std::shared_ptr<UIHost>& UIHost::currentShared() {
  auto& host = installedHost();
  if (!host) host = std::make_shared<HeadlessHost>(CGSize{390.0, 844.0}, 3.0);
  return host;
}

void UIHost::install(std::shared_ptr<UIHost> host) {
  if (host) host->renderer_->reset();
  installedHost() = std::move(host);
}

const UIFrame& UIHost::renderFrame() {
  const UIFrame& frame = renderer_->render(screenSize(), screenScale());
  presentFrame(frame);
  return frame;
}

const UILayerFrame& UIHost::renderLayers() { return renderer_->renderLayers(screenSize(), screenScale()); }

std::string UIHost::renderPNG() {
  const UIFrame& frame = renderFrame();
  std::vector<png_byte> row(static_cast<std::size_t>(frame.width) * 4);
  std::string png;
  png.reserve(static_cast<std::size_t>(frame.width) * frame.height);
  if (!encode(frame, &png, row.data())) png.clear();
  return png;
}

bool UIHost::writePNG(const std::string& path) {
  const std::string png = renderPNG();
  if (png.empty()) return false;
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  const bool written = std::fwrite(png.data(), 1, png.size(), file) == png.size();
  return std::fclose(file) == 0 && written;
}

std::size_t UIHost::backingStoreBytes() const { return renderer_->stores.bytes(); }

std::size_t UIHost::backingStoreBytes(const UIView& view) const { return renderer_->stores.bytesOf(view); }

void UIHost::screenChanged() {
  renderer_->reset();
  // A host not yet installed has no screen to lay out.
  if (installedHost().get() != this) return;
  if (auto window = UIApplication::sharedApplication().keyWindow()) window->setFrame({{}, screenSize()});
}

HeadlessHost::HeadlessHost(CGSize screenSize, double scale) : screenSize_(screenSize), scale_(scale) {}

void HeadlessHost::resize(CGSize screenSize, double scale) {
  if (screenSize == screenSize_ && scale == scale_) return;
  screenSize_ = screenSize;
  scale_ = scale;
  screenChanged();
}

}  // namespace tavrel
