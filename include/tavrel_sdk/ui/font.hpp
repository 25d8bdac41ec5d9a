#pragma once

// UIFont and text measurement. The system font is DejaVu Sans, carried inside the library (never
// chosen among the machine's fonts), with unhinted metrics, so a text measures the same on every
// machine and sizes scale in proportion; only characters it lacks come from the machine's fonts. Sizes are in points; one point is one pixel at scale 1.
//
// Thread safety: fonts are immutable; measuring is main-thread only, like everything drawn.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/color.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace tavrel {

inline constexpr double UIFontWeightRegular = 0.0;
inline constexpr double UIFontWeightSemibold = 0.3;
inline constexpr double UIFontWeightBold = 0.4;

// The platform's default sizes.
inline constexpr double kLabelFontSize = 17.0;        // labels and text fields
inline constexpr double kButtonTitleFontSize = 15.0;  // button titles

class TAVREL_EXPORT UIFont {
 public:
  // A weight from UIFontWeightSemibold up draws DejaVu Sans Bold; below it, the regular face.
  UIFont(std::string familyName, double pointSize, bool monospacedDigits, double weight = UIFontWeightRegular);

  static std::shared_ptr<UIFont> systemFontOfSize(double fontSize);
  static std::shared_ptr<UIFont> systemFontOfSize(double fontSize, double weight);
  static std::shared_ptr<UIFont> boldSystemFontOfSize(double fontSize);
  // All digits one width (DejaVu Sans digits already are; the flag is kept for the tree dump).
  static std::shared_ptr<UIFont> monospacedDigitSystemFontOfSize(double fontSize, double weight);
  std::shared_ptr<UIFont> fontWithSize(double fontSize) const;

  const std::string& familyName() const { return familyName_; }
  double pointSize() const { return pointSize_; }
  bool monospacedDigits() const { return monospacedDigits_; }
  double weight() const { return weight_; }
  bool isBold() const { return weight_ >= UIFontWeightSemibold; }
  // Line metrics in points, as drawn.
  double ascender() const;
  double descender() const;  // negative, as the platform's
  double lineHeight() const;

 private:
  std::string familyName_;
  double pointSize_;
  bool monospacedDigits_;
  double weight_;
};

// The attributes sizeWithAttributes: reads (NSFontAttributeName, NSForegroundColorAttributeName).
// A missing font measures with the platform's default for attributed text, 12 points.
struct TextAttributes {
  std::shared_ptr<UIFont> font;
  std::shared_ptr<UIColor> foregroundColor;
};

// NSString sizeWithAttributes:: the size of one line of text as drawn, with its fractions.
TAVREL_EXPORT CGSize sizeWithAttributes(std::string_view text, const TextAttributes& attributes);

}  // namespace tavrel
