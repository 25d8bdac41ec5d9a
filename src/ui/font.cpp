#include <tavrel_sdk/ui/font.hpp>

#include "ui/text_layout.hpp"

namespace tavrel {

namespace {
constexpr const char* kSystemFamily = "DejaVu Sans";
// What the platform measures attributed text with when no font is given.
constexpr double kDefaultAttributedFontSize = 12.0;
}  // namespace

UIFont::UIFont(std::string familyName, double pointSize, bool monospacedDigits, double weight)
    : familyName_(std::move(familyName)), pointSize_(pointSize), monospacedDigits_(monospacedDigits), weight_(weight) {}

std::shared_ptr<UIFont> UIFont::systemFontOfSize(double fontSize) {
  return systemFontOfSize(fontSize, UIFontWeightRegular);
}

std::shared_ptr<UIFont> UIFont::systemFontOfSize(double fontSize, double weight) {
  return std::make_shared<UIFont>(kSystemFamily, fontSize, false, weight);
}

std::shared_ptr<UIFont> UIFont::boldSystemFontOfSize(double fontSize) {
  return systemFontOfSize(fontSize, UIFontWeightBold);
}

std::shared_ptr<UIFont> UIFont::monospacedDigitSystemFontOfSize(double fontSize, double weight) {
  return std::make_shared<UIFont>(kSystemFamily, fontSize, true, weight);
}

std::shared_ptr<UIFont> UIFont::fontWithSize(double fontSize) const {
  return std::make_shared<UIFont>(familyName_, fontSize, monospacedDigits_, weight_);
}

double UIFont::ascender() const { return text::metrics(*this).ascent; }
double UIFont::descender() const { return -text::metrics(*this).descent; }
double UIFont::lineHeight() const { return ascender() - descender(); }

CGSize sizeWithAttributes(std::string_view text, const TextAttributes& attributes) {
  if (attributes.font) return text::measure(*attributes.font, text);
  static const UIFont defaultFont(kSystemFamily, kDefaultAttributedFontSize, false);
  return text::measure(defaultFont, text);
}

}  // namespace tavrel
