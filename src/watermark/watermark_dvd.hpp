#pragma once

#include "watermark/watermark_behaviour.hpp"

namespace tavrel {

// Type 1: one copy of the text drifts on a straight line and bounces off the four edges. The
// first reset draws the start and the velocity (arc4random() twice, then
// arc4random_uniform(256) twice); later resets do nothing.
class TAVREL_EXPORT WatermarkDVD final : public WatermarkBehaviour {
 public:
  std::int32_t getBehaviourType() const override;
  void updateWithSpeed(float speed, float width, float height, float textWidth,
                       float textHeight) override;
  void resetWithWidth(float width, float height, float textWidth, float textHeight) override;
  // Exactly one item, whatever the sizes.
  void fillRenderListWithWidth(std::vector<RenderItem>& items, float width, float height,
                               float textWidth, float textHeight) const override;

  float x() const { return x_; }
  float y() const { return y_; }
  // Velocities are factors of the tick's distance, multiples of 1/128 in [-0.5, 1.4921875].
  float dx() const { return dx_; }
  float dy() const { return dy_; }
  bool isInitialised() const { return initialised_; }

 private:
  float x_ = 0.0f;
  float y_ = 0.0f;
  float dx_ = 0.0f;
  float dy_ = 0.0f;
  bool initialised_ = false;
};

}  // namespace tavrel
