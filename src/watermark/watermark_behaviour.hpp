#pragma once

// The contract every motion model of the watermark follows, and the numbers that select one.
//
// A behaviour keeps none of the sizes it is given: canvas and text sizes arrive anew with each
// call. The controller (Watermark) is its only caller, on one thread; behaviours take no locks.

#include "watermark/render_item.hpp"

#include <tavrel_sdk/export.hpp>

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace tavrel {

enum WatermarkBehaviourType : std::int32_t {
  WatermarkBehaviourTypeTicker = 0,
  WatermarkBehaviourTypeDVD = 1,
  WatermarkBehaviourTypeMultilineTicker = 2,
  // Asks Watermark::setBehaviourType() to draw one of the three; no behaviour reports it.
  WatermarkBehaviourTypeRandom = 3,
};

// Thrown by the base class's motion operations: reaching one means a subclass is incomplete.
class TAVREL_EXPORT NotImplementedError : public std::logic_error {
 public:
  NotImplementedError();
  ~NotImplementedError() override;
  // "Not implemented"; what() is the reason, "base class method called".
  const char* name() const noexcept;
};

class TAVREL_EXPORT WatermarkBehaviour {
 public:
  WatermarkBehaviour() = default;
  virtual ~WatermarkBehaviour();
  WatermarkBehaviour(const WatermarkBehaviour&) = delete;
  WatermarkBehaviour& operator=(const WatermarkBehaviour&) = delete;

  // The gap on either side of a copy of the text, from the canvas height (not width):
  // trunc(30 * (height / 1080)), in float. 30 on a canvas 1080 high, 0 below 36.
  std::int32_t getSpacerWidth(float height) const;

  // The four below throw NotImplementedError here; every concrete behaviour overrides them.

  // The behaviour's WatermarkBehaviourType: 0, 1 or 2.
  virtual std::int32_t getBehaviourType() const;
  // Moves the text by `speed`, a distance in points for this tick (not a rate).
  virtual void updateWithSpeed(float speed, float width, float height, float textWidth,
                               float textHeight);
  // Called right after construction, possibly again at once, and at each end of a change
  // period; each behaviour decides whether a repeated reset acts.
  virtual void resetWithWidth(float width, float height, float textWidth, float textHeight);
  // The placements of this tick in the behaviour's own order, into `items` (what it held is
  // replaced): a caller that keeps the vector allocates nothing once it is long enough.
  // Changes no state.
  virtual void fillRenderListWithWidth(std::vector<RenderItem>& items, float width, float height,
                                       float textWidth, float textHeight) const;

  // The same placements as a new list.
  std::vector<RenderItem> getRenderListWithWidth(float width, float height, float textWidth,
                                                 float textHeight) const;
};

}  // namespace tavrel
