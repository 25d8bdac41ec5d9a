#pragma once

// Watermark: the controller the overlay ticks. It keeps the speed, the change period, the
// canvas and text sizes, owns the present behaviour and moves it by speed × delta per tick.
// Time reaches it only as the delta of updateWithDelta(), in seconds.
//
// Thread safety: none. All calls come from the one thread that ticks the overlay.

#include "watermark/render_item.hpp"
#include "watermark/watermark_behaviour.hpp"
#include "watermark/watermark_dvd.hpp"
#include "watermark/watermark_multiline_ticker.hpp"
#include "watermark/watermark_ticker.hpp"

#include <tavrel_sdk/export.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tavrel {

class TAVREL_EXPORT Watermark {
 public:
  // Speed 70 points a second, change period 60 seconds, no behaviour, all sizes 0.
  Watermark();
  ~Watermark();
  Watermark(const Watermark&) = delete;
  Watermark& operator=(const Watermark&) = delete;

  void setSpeed(float speed);
  // The running count of the present period is kept.
  void setChangePositionTimer(float seconds);

  // Sizes are stored only; the behaviour sees them at its next call.
  void setCanvasDimensionWithWidth(float width, float height);
  float getCanvasWidth() const { return canvasWidth_; }
  float getCanvasHeight() const { return canvasHeight_; }
  void setTextDimensionsWithWidth(float width, float height);
  float getTextWidth() const { return textWidth_; }
  float getTextHeight() const { return textHeight_; }

  bool isBehaviourSet() const { return behaviourSet_; }
  // 0, 1, 2: a new behaviour of that type replaces the present one. 3: random mode is switched
  // on for good and a type drawn with arc4random_uniform(3) is put in place. Any other value
  // keeps the present behaviour. In every case the behaviour (if any) is then reset with the
  // stored sizes. Set the canvas first: the reset reads it.
  void setBehaviourType(std::int32_t type);
  // The type of the behaviour in place: 0, 1 or 2 (in random mode the drawn one); 0 while
  // there is none.
  std::int32_t getBehaviourType() const { return behaviourType_; }

  // One tick of `delta` seconds. At the end of a change period, in random mode a newly drawn
  // behaviour replaces the present one and does not move on this tick; otherwise the behaviour
  // moves and is then reset.
  void updateWithDelta(float delta);
  // The placements for this tick, or nullopt while no behaviour is set.
  std::optional<std::vector<RenderItem>> getRenderList() const;
  // The same into a list the caller keeps (no allocation once it is long enough); false, and
  // `items` untouched, while no behaviour is set.
  bool fillRenderList(std::vector<RenderItem>& items) const;

  // The behaviour in place, for inspection; null while none is set.
  const WatermarkBehaviour* behaviour() const { return behaviour_.get(); }
  bool isRandomised() const { return randomiseBehaviour_; }
  float changePositionCounter() const { return changePositionCounter_; }

 private:
  void resetBehaviour();

  float speed_ = 70.0f;
  float changePositionTimer_ = 60.0f;
  float changePositionCounter_ = 0.0f;
  bool changeBehaviour_ = false;
  bool randomiseBehaviour_ = false;
  std::int32_t behaviourType_ = 0;
  std::unique_ptr<WatermarkBehaviour> behaviour_;
  bool behaviourSet_ = false;
  float textWidth_ = 0.0f;
  float textHeight_ = 0.0f;
  float canvasWidth_ = 0.0f;
  float canvasHeight_ = 0.0f;
};

}  // namespace tavrel
