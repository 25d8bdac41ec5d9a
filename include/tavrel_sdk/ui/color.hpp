#pragma once

// UIColor: an immutable RGBA colour, components from 0 to 1 (device RGB, straight alpha).
//
// Thread safety: immutable, so usable from any thread.

#include <tavrel_sdk/export.hpp>

#include <memory>

namespace tavrel {

// What a layer takes for its border (the CGColor of a UIColor).
struct CGColorRef {
  double red = 0.0;
  double green = 0.0;
  double blue = 0.0;
  double alpha = 0.0;
  bool operator==(const CGColorRef&) const = default;
};

class TAVREL_EXPORT UIColor {
 public:
  // initWithRed:green:blue:alpha:. Components are kept as given (the platform clamps only
  // when drawing).
  UIColor(double red, double green, double blue, double alpha);

  static std::shared_ptr<UIColor> colorWithRed(double red, double green, double blue, double alpha);
  static std::shared_ptr<UIColor> whiteColor();
  static std::shared_ptr<UIColor> blackColor();
  static std::shared_ptr<UIColor> clearColor();

  std::shared_ptr<UIColor> colorWithAlphaComponent(double alpha) const;
  CGColorRef CGColor() const { return {red_, green_, blue_, alpha_}; }

  double red() const { return red_; }
  double green() const { return green_; }
  double blue() const { return blue_; }
  double alpha() const { return alpha_; }
  bool operator==(const UIColor& other) const { return CGColor() == other.CGColor(); }

 private:
  double red_, green_, blue_, alpha_;
};

}  // namespace tavrel
