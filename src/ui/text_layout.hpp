#pragma once

// The toolkit's one Pango set-up: a font map that knows only the DejaVu Sans faces carried in
// the library, one context with unhinted metrics, font descriptions per size and reusable
// layouts; a text with characters the faces lack goes to a second font map where the machine's
// fonts follow ours. Measuring and drawing share it, so a text is drawn exactly as wide as it
// was measured.
//
// Thread safety: main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/font.hpp>

#include <pango/pangocairo.h>

#include <string_view>

namespace tavrel::text {

// The shared layout holding `text` in `font` on one line, with no width limit: of our faces
// alone, or of the machine's fonts after ours when the faces lack a character of `text`. Valid
// until the next call of any function here.
TAVREL_EXPORT PangoLayout* measuringLayout(const UIFont& font, std::string_view text);

// The logical size of one line of `text` in `font`, in points, with fractions.
TAVREL_EXPORT CGSize measure(const UIFont& font, std::string_view text);

struct Metrics {
  double ascent;
  double descent;  // positive, below the baseline
};
Metrics metrics(const UIFont& font);

// How a line sits in its box.
struct LineStyle {
  NSTextAlignment alignment = NSTextAlignment::Left;
  bool truncateTail = true;  // "…" when the text is wider than the box
  // Lines to wrap into at word boundaries: 1 for a single line, 0 for as many as the box holds.
  int numberOfLines = 1;
};

// Draws `text` in `box` (points, the current user space), centred vertically, in `color`. The
// tool's pictures (plots, contact sheets) draw their text with it too.
TAVREL_EXPORT void drawText(cairo_t* cr, std::string_view text, const UIFont& font, const UIColor& color, CGRect box,
              const LineStyle& style);

}  // namespace tavrel::text
