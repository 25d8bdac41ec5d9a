#include <tavrel_sdk/ui/host.hpp>

#include <algorithm>
#include <bit>
#include <cstring>

namespace tavrel {

namespace {

// Native ARGB32 to the bytes R, G, B, A.
inline void toRgba(std::uint32_t argb, std::uint8_t* out, bool straight) {
  const std::uint32_t a = argb >> 24;
  std::uint32_t r = (argb >> 16) & 0xff, g = (argb >> 8) & 0xff, b = argb & 0xff;
  if (straight && a != 0 && a != 255) {
    // Rounded, so a pixel premultiplied from a straight colour comes back to it.
    r = (r * 255 + a / 2) / a;
    g = (g * 255 + a / 2) / a;
    b = (b * 255 + a / 2) / a;
  }
  out[0] = static_cast<std::uint8_t>(r);
  out[1] = static_cast<std::uint8_t>(g);
  out[2] = static_cast<std::uint8_t>(b);
  out[3] = static_cast<std::uint8_t>(a);
}

}  // namespace

void copyPixels(const std::uint32_t* from, int fromStride, int width, int height, const PixelRect* rects,
                std::size_t count, void* to, int toStride, PixelFormat format) {
  const auto* source = reinterpret_cast<const std::uint8_t*>(from);
  auto* target = static_cast<std::uint8_t*>(to);
  for (std::size_t i = 0; i < count; ++i) {
    const int x0 = std::max(rects[i].x, 0), y0 = std::max(rects[i].y, 0);
    const int x1 = std::min(rects[i].x + rects[i].width, width);
    const int y1 = std::min(rects[i].y + rects[i].height, height);
    if (x0 >= x1 || y0 >= y1) continue;
    for (int y = y0; y < y1; ++y) {
      const auto* in = source + static_cast<std::ptrdiff_t>(y) * fromStride + x0 * 4;
      auto* out = target + static_cast<std::ptrdiff_t>(y) * toStride + x0 * 4;
      if (format == PixelFormat::bgraPremultiplied && std::endian::native == std::endian::little) {
        // Native ARGB32 is already B, G, R, A in memory.
        std::memcpy(out, in, static_cast<std::size_t>(x1 - x0) * 4);
        continue;
      }
      for (int x = x0; x < x1; ++x, in += 4, out += 4) {
        std::uint32_t argb;
        std::memcpy(&argb, in, 4);
        if (format == PixelFormat::bgraPremultiplied) {
          const std::uint8_t bgra[4] = {std::uint8_t(argb), std::uint8_t(argb >> 8), std::uint8_t(argb >> 16),
                                        std::uint8_t(argb >> 24)};
          std::memcpy(out, bgra, 4);
        } else {
          toRgba(argb, out, format == PixelFormat::rgbaStraight);
        }
      }
    }
  }
}

}  // namespace tavrel
