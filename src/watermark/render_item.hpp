#pragma once

// The values a behaviour hands out (one placement of the text) and keeps (one line of the
// multi-line ticker). Coordinates are points, x to the right, y downward, (0, 0) the top-left
// corner of the canvas; a placement is the top-left corner of the text's box.

#include <tavrel_sdk/export.hpp>

#include <cstdint>

namespace tavrel {

enum RenderOrientation : std::int32_t {
  RenderOrientationHorizontal = 0,
};

class TAVREL_EXPORT RenderItem {
 public:
  constexpr RenderItem() = default;
  constexpr RenderItem(float x, float y, std::int32_t orientation = RenderOrientationHorizontal)
      : x_(x), y_(y), orientation_(orientation) {}

  constexpr float x() const { return x_; }
  constexpr void setX(float x) { x_ = x; }
  constexpr float y() const { return y_; }
  constexpr void setY(float y) { y_ = y; }
  constexpr std::int32_t orientation() const { return orientation_; }
  constexpr void setOrientation(std::int32_t orientation) { orientation_ = orientation; }

  friend constexpr bool operator==(const RenderItem&, const RenderItem&) = default;

 private:
  float x_ = 0.0f;
  float y_ = 0.0f;
  std::int32_t orientation_ = RenderOrientationHorizontal;
};

class TAVREL_EXPORT Position {
 public:
  constexpr Position() = default;
  constexpr Position(float x, float y) : x_(x), y_(y) {}

  constexpr float x() const { return x_; }
  constexpr void setX(float x) { x_ = x; }
  constexpr float y() const { return y_; }
  constexpr void setY(float y) { y_ = y; }

  friend constexpr bool operator==(const Position&, const Position&) = default;

 private:
  float x_ = 0.0f;
  float y_ = 0.0f;
};

}  // namespace tavrel
