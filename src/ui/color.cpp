#include <tavrel_sdk/ui/color.hpp>

namespace tavrel {

UIColor::UIColor(double red, double green, double blue, double alpha)
    : red_(red), green_(green), blue_(blue), alpha_(alpha) {}

std::shared_ptr<UIColor> UIColor::colorWithRed(double red, double green, double blue, double alpha) {
  return std::make_shared<UIColor>(red, green, blue, alpha);
}

std::shared_ptr<UIColor> UIColor::whiteColor() { return colorWithRed(1.0, 1.0, 1.0, 1.0); }
std::shared_ptr<UIColor> UIColor::blackColor() { return colorWithRed(0.0, 0.0, 0.0, 1.0); }
std::shared_ptr<UIColor> UIColor::clearColor() { return colorWithRed(0.0, 0.0, 0.0, 0.0); }

std::shared_ptr<UIColor> UIColor::colorWithAlphaComponent(double alpha) const {
  return colorWithRed(red_, green_, blue_, alpha);
}

}  // namespace tavrel
