#include "watermark/watermark_dvd.hpp"

#include "platform/random.hpp"
#include "watermark/watermark_arithmetic.hpp"

namespace tavrel {

namespace {

// A multiple of 1/128 from -0.5 to 1.4921875: off-centre on purpose, the drift leans right/down.
float drawVelocity() {
  const std::uint32_t draw = tavrel::arc4random_uniform(256);
  return static_cast<float>(static_cast<double>(draw) / 128.0 - 0.5);
}

}  // namespace

std::int32_t WatermarkDVD::getBehaviourType() const { return WatermarkBehaviourTypeDVD; }

void WatermarkDVD::updateWithSpeed(float speed, float width, float height, float textWidth,
                                   float textHeight) {
  x_ = dx_ * speed + x_;
  y_ = dy_ * speed + y_;
  // Horizontally a wide text counts by half and in whole points; vertically the height counts
  // in full. The sign tests keep a text that overshot an edge from turning again on its way back.
  const float extent = textWidth > width ? textWidth / 2.0f : textWidth;
  const std::int32_t wholeExtent = watermark_detail::truncateToInt32(extent);
  if ((!(dx_ > 0.0f) && x_ < 0.0f) ||
      (!(dx_ < 0.0f) && x_ + static_cast<float>(wholeExtent) > width)) {
    dx_ = dx_ * -1.0f;
  }
  if ((!(dy_ > 0.0f) && y_ < 0.0f) || (!(dy_ < 0.0f) && y_ + textHeight > height)) {
    dy_ = dy_ * -1.0f;
  }
}

void WatermarkDVD::resetWithWidth(float width, float height, float, float textHeight) {
  if (initialised_) return;
  initialised_ = true;
  // The draws keep this order: x, y, then the two velocities.
  const std::uint32_t column = watermark_detail::unsignedRemainder(
      tavrel::arc4random(), watermark_detail::truncateToInt32(width));
  x_ = static_cast<float>(static_cast<std::int32_t>(column));
  y_ = watermark_detail::drawLineInBand(height, textHeight);
  dx_ = drawVelocity();
  dy_ = drawVelocity();
}

void WatermarkDVD::fillRenderListWithWidth(std::vector<RenderItem>& items, float, float, float,
                                           float) const {
  items.assign(1, RenderItem(x_, y_));
}

}  // namespace tavrel
