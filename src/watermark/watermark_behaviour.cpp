#include "watermark/watermark_behaviour.hpp"

#include "platform/random.hpp"
#include "watermark/watermark_arithmetic.hpp"

namespace tavrel {

NotImplementedError::NotImplementedError() : std::logic_error("base class method called") {}
NotImplementedError::~NotImplementedError() = default;
const char* NotImplementedError::name() const noexcept { return "Not implemented"; }

WatermarkBehaviour::~WatermarkBehaviour() = default;

std::int32_t WatermarkBehaviour::getSpacerWidth(float height) const {
  const float scale = height / 1080.0f;
  return watermark_detail::truncateToInt32(30.0f * scale);
}

std::int32_t WatermarkBehaviour::getBehaviourType() const { throw NotImplementedError(); }

void WatermarkBehaviour::updateWithSpeed(float, float, float, float, float) {
  throw NotImplementedError();
}

void WatermarkBehaviour::resetWithWidth(float, float, float, float) { throw NotImplementedError(); }

void WatermarkBehaviour::fillRenderListWithWidth(std::vector<RenderItem>&, float, float, float,
                                                 float) const {
  throw NotImplementedError();
}

std::vector<RenderItem> WatermarkBehaviour::getRenderListWithWidth(float width, float height,
                                                                   float textWidth,
                                                                   float textHeight) const {
  std::vector<RenderItem> items;
  fillRenderListWithWidth(items, width, height, textWidth, textHeight);
  return items;
}

namespace watermark_detail {

float drawLineInBand(float height, float textHeight) {
  // The margin and the band are computed in double (h widened, 0.1 a double constant), the
  // text height taken off in float first: the band's edge depends on these widths.
  const double tenth = static_cast<double>(height) * 0.1;
  const std::int32_t margin = truncateToInt32(tenth);
  const std::uint32_t draw = tavrel::arc4random();
  const float freeHeight = height - textHeight;
  const std::int32_t modulus = truncateToInt32(static_cast<double>(freeHeight) - tenth * 2.0);
  const std::uint32_t line = static_cast<std::uint32_t>(margin) + unsignedRemainder(draw, modulus);
  return static_cast<float>(line);
}

}  // namespace watermark_detail

}  // namespace tavrel
