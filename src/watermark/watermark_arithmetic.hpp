#pragma once

// The integer steps the behaviours share. The motion is defined by the exact widths of each
// step, so these are written for the bits they produce, not for convenience.

#include "watermark/render_item.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace tavrel::watermark_detail {

// Truncation toward zero to int32, saturating as arm64's fcvtzs does: values beyond the range
// give INT32_MIN or INT32_MAX and NaN gives 0 (a plain cast is undefined there). Every float
// widens to double exactly, so this one helper serves both widths.
constexpr std::int32_t truncateToInt32(double value) {
  if (value != value) return 0;
  if (value >= 2147483648.0) return std::numeric_limits<std::int32_t>::max();
  if (value <= -2147483649.0) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

// dividend mod modulus with both read as unsigned 32-bit. A zero modulus yields the dividend,
// as arm64's udiv (quotient 0) followed by msub does; a negative one counts as 2^32 + modulus.
constexpr std::uint32_t unsignedRemainder(std::uint32_t dividend, std::int32_t modulus) {
  const auto divisor = static_cast<std::uint32_t>(modulus);
  return divisor == 0 ? dividend : dividend % divisor;
}

// Draws one arc4random() and places a line in the band from 10% of the height down to 90% of
// the height less the text height: margin + draw mod band, a whole number for ordinary sizes.
float drawLineInBand(float height, float textHeight);

// The advance from one copy of the text to the next: the text and twice the spacer.
constexpr float rowStep(float textWidth, std::int32_t spacer) {
  // Doubling wraps like the 32-bit multiply it is; only a saturated spacer gets there.
  const auto doubled = static_cast<std::int32_t>(static_cast<std::uint32_t>(spacer) * 2u);
  return textWidth + static_cast<float>(doubled);
}

// Visits the copies of one line from left to right: at least two, then on while a copy still
// starts left of the right edge. REQUIRES: step > 0, or the walk never ends (callers always
// have a measured, non-empty text).
template <class Visit>
void walkRow(float x, float width, float step, Visit&& visit) {
  for (std::size_t count = 0; x < width || count < 2; ++count) {
    visit(x);
    x = x + step;
  }
}

inline std::size_t rowLength(float x, float width, float step) {
  std::size_t count = 0;
  walkRow(x, width, step, [&count](float) { ++count; });
  return count;
}

inline void appendRow(std::vector<RenderItem>& items, float x, float y, float width, float step) {
  walkRow(x, width, step, [&items, y](float at) { items.emplace_back(at, y); });
}

}  // namespace tavrel::watermark_detail
