#include "watermark/watermark_ticker.hpp"

#include "watermark/watermark_arithmetic.hpp"

namespace tavrel {

std::int32_t WatermarkTicker::getBehaviourType() const { return WatermarkBehaviourTypeTicker; }

void WatermarkTicker::updateWithSpeed(float speed, float, float, float textWidth, float) {
  x_ = x_ - speed;
  // Strictly past one text width, and back to 0 rather than by a period: the row jumps left by
  // about two spacers once per pass, as the original motion does.
  if (x_ < -textWidth) x_ = 0.0f;
}

void WatermarkTicker::resetWithWidth(float, float height, float, float textHeight) {
  x_ = 0.0f;
  y_ = watermark_detail::drawLineInBand(height, textHeight);
}

void WatermarkTicker::fillRenderListWithWidth(std::vector<RenderItem>& items, float width,
                                              float height, float textWidth, float) const {
  const float step = watermark_detail::rowStep(textWidth, getSpacerWidth(height));
  items.clear();
  items.reserve(watermark_detail::rowLength(x_, width, step));
  watermark_detail::appendRow(items, x_, y_, width, step);
}

}  // namespace tavrel
