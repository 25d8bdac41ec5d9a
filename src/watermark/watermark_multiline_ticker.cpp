#include "watermark/watermark_multiline_ticker.hpp"

#include "watermark/watermark_arithmetic.hpp"

namespace tavrel {

std::int32_t WatermarkMultilineTicker::getBehaviourType() const {
  return WatermarkBehaviourTypeMultilineTicker;
}

void WatermarkMultilineTicker::updateWithSpeed(float speed, float, float, float textWidth,
                                               float) {
  const std::int32_t direction = -1;
  for (Position& position : positions_) {
    float x = static_cast<float>(direction) * speed + position.x();
    if (x < -textWidth) x = 0.0f;
    position.setX(x);
  }
}

void WatermarkMultilineTicker::resetWithWidth(float, float height, float, float) {
  if (initialised_) return;
  initialised_ = true;
  positions_.clear();
  const float top = static_cast<float>(static_cast<double>(height) * 0.1);
  const float bottom = static_cast<float>(static_cast<double>(height) * 0.9);
  const float step = (bottom - top) / static_cast<float>(kLineCount - 1);
  // Accumulated, not top + i * step: the last line may differ from `bottom` in its last bits.
  float y = top;
  positions_.reserve(kLineCount);
  for (std::int32_t line = 0; line < kLineCount; ++line) {
    positions_.emplace_back(0.0f, y);
    y = y + step;
  }
}

void WatermarkMultilineTicker::fillRenderListWithWidth(std::vector<RenderItem>& items, float width,
                                                       float height, float textWidth, float) const {
  const float step = watermark_detail::rowStep(textWidth, getSpacerWidth(height));
  std::size_t count = 0;
  for (const Position& position : positions_) {
    count += watermark_detail::rowLength(position.x(), width, step);
  }
  items.clear();
  items.reserve(count);
  for (const Position& position : positions_) {
    watermark_detail::appendRow(items, position.x(), position.y(), width, step);
  }
}

}  // namespace tavrel
