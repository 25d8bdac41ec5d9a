#pragma once

// Small Cairo helpers shared by the renderer and the controls' drawRect(). Main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/color.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

#include <cairo.h>

namespace tavrel {

// The colour clamped to 0…1 (colours keep what they were given; drawing clamps), its alpha
// multiplied by `alpha`: what Cairo is given, and what a fill that bypasses it writes.
CGColorRef drawnColor(const CGColorRef& color, double alpha);
TAVREL_EXPORT void setSourceColor(cairo_t* cr, const CGColorRef& color, double alpha = 1.0);

// A rectangle with corners rounded by `radius`, limited to half the shorter side.
TAVREL_EXPORT void roundedRectPath(cairo_t* cr, CGRect rect, double radius);

}  // namespace tavrel
