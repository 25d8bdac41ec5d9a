#pragma once

// The premultiplied frame over the game's pixels (one, one minus source alpha), the game's exact where clear.

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

namespace tavrel::testing {

// `overlay` 0xAARRGGBB, `game` and `shown` 0x..RRGGBB; empty when all match, else how many do not and the first.
inline std::string blendMismatches(const std::uint32_t* overlay, int overlayStride, const std::uint32_t* game,
                                   const std::uint32_t* shown, int stride, int width, int height,
                                   int tolerance = 2) {
  int wrong = 0;
  std::ostringstream first;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::uint32_t source = overlay[static_cast<std::size_t>(y) * overlayStride + x];
      const std::uint32_t under = game[static_cast<std::size_t>(y) * stride + x];
      const std::uint32_t seen = shown[static_cast<std::size_t>(y) * stride + x];
      const int alpha = static_cast<int>(source >> 24);
      const int allowed = source == 0 ? 0 : tolerance;
      for (int shift : {16, 8, 0}) {
        const int expected = static_cast<int>((source >> shift) & 0xff) +
                             (static_cast<int>((under >> shift) & 0xff) * (255 - alpha) + 127) / 255;
        if (std::abs(static_cast<int>((seen >> shift) & 0xff) - expected) > allowed) {
          if (wrong++ == 0) {
            first << std::hex << "first at (" << std::dec << x << ", " << y << "): 0x" << std::hex << (seen & 0xffffff)
                  << " for 0x" << source << " over 0x" << (under & 0xffffff);
          }
          break;
        }
      }
    }
  }
  if (wrong == 0) return {};
  return std::to_string(wrong) + " pixels differ, " + first.str();
}

}  // namespace tavrel::testing
