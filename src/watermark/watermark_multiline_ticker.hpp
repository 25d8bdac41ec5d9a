#pragma once

#include "watermark/watermark_behaviour.hpp"

#include <vector>

namespace tavrel {

// Type 2: ten tickers on fixed lines spread over the middle 80% of the height, all moving in
// step. The first reset lays the lines out from that reset's height; later resets do nothing.
// Draws no random numbers.
class TAVREL_EXPORT WatermarkMultilineTicker final : public WatermarkBehaviour {
 public:
  static constexpr std::int32_t kLineCount = 10;

  std::int32_t getBehaviourType() const override;
  void updateWithSpeed(float speed, float width, float height, float textWidth,
                       float textHeight) override;
  void resetWithWidth(float width, float height, float textWidth, float textHeight) override;
  // Grouped by line, top line first, each left to right with at least two items; empty before
  // the first reset. REQUIRES: textWidth + 2 * spacer > 0.
  void fillRenderListWithWidth(std::vector<RenderItem>& items, float width, float height,
                               float textWidth, float textHeight) const override;

  // One entry per line, top first; empty until laid out.
  const std::vector<Position>& positions() const { return positions_; }
  bool isInitialised() const { return initialised_; }

 private:
  std::vector<Position> positions_;
  bool initialised_ = false;
};

}  // namespace tavrel
