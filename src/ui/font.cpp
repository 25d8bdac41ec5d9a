#include <tavrel_sdk/ui/font.hpp>

namespace tavrel {

UIFont::UIFont(std::string familyName, double pointSize, bool monospacedDigits)
    : familyName_(std::move(familyName)), pointSize_(pointSize), monospacedDigits_(monospacedDigits) {}

std::shared_ptr<UIFont> UIFont::systemFontOfSize(double fontSize) {
  return std::make_shared<UIFont>("DejaVu Sans", fontSize, false);
}

std::shared_ptr<UIFont> UIFont::monospacedDigitSystemFontOfSize(double fontSize, double /*weight*/) {
  return std::make_shared<UIFont>("DejaVu Sans", fontSize, true);
}

std::shared_ptr<UIFont> UIFont::fontWithSize(double fontSize) const {
  return std::make_shared<UIFont>(familyName_, fontSize, monospacedDigits_);
}

double UIFont::ascender() const { return pointSize_ * 0.928; }
double UIFont::descender() const { return -pointSize_ * 0.236; }
double UIFont::lineHeight() const { return ascender() - descender(); }

CGSize sizeWithAttributes(std::string_view text, const TextAttributes& attributes) {
  double size = attributes.font ? attributes.font->pointSize() : 12.0;
  return {0.6 * size * static_cast<double>(text.size()), size * 1.164};
}

}  // namespace tavrel
