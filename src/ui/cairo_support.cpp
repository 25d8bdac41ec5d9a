#include "ui/cairo_support.hpp"

#include <algorithm>
#include <numbers>

namespace tavrel {

namespace {
double clamp01(double value) { return std::clamp(value, 0.0, 1.0); }
}  // namespace

CGColorRef drawnColor(const CGColorRef& color, double alpha) {
  return {clamp01(color.red), clamp01(color.green), clamp01(color.blue), clamp01(clamp01(color.alpha) * alpha)};
}

void setSourceColor(cairo_t* cr, const CGColorRef& color, double alpha) {
  const CGColorRef drawn = drawnColor(color, alpha);
  cairo_set_source_rgba(cr, drawn.red, drawn.green, drawn.blue, drawn.alpha);
}

void roundedRectPath(cairo_t* cr, CGRect rect, double radius) {
  const double r = std::min({radius, rect.size.width / 2.0, rect.size.height / 2.0});
  if (r <= 0.0) {
    cairo_rectangle(cr, rect.minX(), rect.minY(), rect.size.width, rect.size.height);
    return;
  }
  constexpr double pi = std::numbers::pi;
  const double left = rect.minX(), top = rect.minY(), right = rect.maxX(), bottom = rect.maxY();
  cairo_new_sub_path(cr);
  cairo_arc(cr, right - r, top + r, r, -pi / 2.0, 0.0);
  cairo_arc(cr, right - r, bottom - r, r, 0.0, pi / 2.0);
  cairo_arc(cr, left + r, bottom - r, r, pi / 2.0, pi);
  cairo_arc(cr, left + r, top + r, r, pi, 3.0 * pi / 2.0);
  cairo_close_path(cr);
}

}  // namespace tavrel
