#include "watermark/watermark.hpp"

#include "platform/random.hpp"

namespace tavrel {

Watermark::Watermark() = default;
Watermark::~Watermark() = default;

void Watermark::setSpeed(float speed) { speed_ = speed; }

void Watermark::setChangePositionTimer(float seconds) { changePositionTimer_ = seconds; }

void Watermark::setCanvasDimensionWithWidth(float width, float height) {
  canvasWidth_ = width;
  canvasHeight_ = height;
}

void Watermark::setTextDimensionsWithWidth(float width, float height) {
  textWidth_ = width;
  textHeight_ = height;
}

void Watermark::setBehaviourType(std::int32_t type) {
  behaviourSet_ = true;
  switch (static_cast<std::uint32_t>(type)) {
    case WatermarkBehaviourTypeTicker:
      behaviour_ = std::make_unique<WatermarkTicker>();
      behaviourType_ = type;
      break;
    case WatermarkBehaviourTypeDVD:
      behaviour_ = std::make_unique<WatermarkDVD>();
      behaviourType_ = type;
      break;
    case WatermarkBehaviourTypeMultilineTicker:
      behaviour_ = std::make_unique<WatermarkMultilineTicker>();
      behaviourType_ = type;
      break;
    case WatermarkBehaviourTypeRandom:
      randomiseBehaviour_ = true;
      // The nested call resets the drawn behaviour, and the reset below does so once more.
      setBehaviourType(static_cast<std::int32_t>(tavrel::arc4random_uniform(3)));
      break;
    default:
      break;
  }
  resetBehaviour();
}

void Watermark::updateWithDelta(float delta) {
  changePositionCounter_ = changePositionCounter_ + delta;
  // "Not less than" and a single subtraction: a delta of several periods ends one per call.
  if (!(changePositionCounter_ < changePositionTimer_)) {
    changePositionCounter_ = changePositionCounter_ - changePositionTimer_;
    changeBehaviour_ = true;
  }
  if (changeBehaviour_ && randomiseBehaviour_) {
    setBehaviourType(WatermarkBehaviourTypeRandom);
    changeBehaviour_ = false;
    return;
  }
  const float distance = speed_ * delta;
  if (behaviour_) {
    behaviour_->updateWithSpeed(distance, canvasWidth_, canvasHeight_, textWidth_, textHeight_);
  }
  if (changeBehaviour_) resetBehaviour();
  changeBehaviour_ = false;
}

std::optional<std::vector<RenderItem>> Watermark::getRenderList() const {
  std::vector<RenderItem> items;
  if (!fillRenderList(items)) return std::nullopt;
  return items;
}

bool Watermark::fillRenderList(std::vector<RenderItem>& items) const {
  if (!behaviour_) return false;
  behaviour_->fillRenderListWithWidth(items, canvasWidth_, canvasHeight_, textWidth_, textHeight_);
  return true;
}

void Watermark::resetBehaviour() {
  if (behaviour_) behaviour_->resetWithWidth(canvasWidth_, canvasHeight_, textWidth_, textHeight_);
}

}  // namespace tavrel
