#pragma once

#include "watermark/watermark_behaviour.hpp"

namespace tavrel {

// Type 0: a row of copies of the text runs right to left along one line and restarts at the
// left edge once its first copy has left the canvas. Every reset, repeated ones included, draws
// a new line with arc4random().
class TAVREL_EXPORT WatermarkTicker final : public WatermarkBehaviour {
 public:
  std::int32_t getBehaviourType() const override;
  void updateWithSpeed(float speed, float width, float height, float textWidth,
                       float textHeight) override;
  void resetWithWidth(float width, float height, float textWidth, float textHeight) override;
  // At least two items, on from x() until one starts at or past `width`.
  // REQUIRES: textWidth + 2 * spacer > 0.
  void fillRenderListWithWidth(std::vector<RenderItem>& items, float width, float height,
                               float textWidth, float textHeight) const override;

  // Left edge of the first copy (0 or negative) and top of the line.
  float x() const { return x_; }
  float y() const { return y_; }

 private:
  float x_ = 0.0f;
  float y_ = 0.0f;
};

}  // namespace tavrel
