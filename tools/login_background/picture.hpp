#pragma once

// The login page's background, drawn from a seed: a charcoal top third over warm brown crossed by
// fine lighter contour lines, with film grain throughout.

#include <cstdint>
#include <vector>

namespace tavrel::background {

constexpr int kWidth = 320;
constexpr int kHeight = 480;

struct Rgb {
  double red, green, blue;
};

// Means the picture is drawn to hold, whatever the seed: the top third's and the whole picture's.
constexpr Rgb kTopThirdMean{38.0, 38.0, 37.0};
constexpr Rgb kPictureMean{73.0, 52.0, 42.0};
// The first pixel row is a little transparent, so the edge under a status bar reads softer.
constexpr std::uint8_t kFirstRowAlpha = 182;

// Straight RGBA, 8 bits a channel, row after row. The same seed gives the same bytes on every
// machine: only IEEE arithmetic and std::mt19937_64's defined sequence go into them. grainScale
// scales the grain (1 as designed); the grain is what decides how far the pixels compress.
std::vector<std::uint8_t> drawPicture(std::uint64_t seed, double grainScale);

}  // namespace tavrel::background
