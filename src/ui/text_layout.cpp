#include "ui/text_layout.hpp"

#include "ui/cairo_support.hpp"
#include "ui/embedded_fonts.hpp"

#include <fontconfig/fontconfig.h>
#include <pango/pangofc-fontmap.h>

#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <tuple>

namespace tavrel::text {

namespace {

struct FontEntry {
  PangoFontDescription* description;
  std::optional<Metrics> metrics;
};

// A font map over one font set, its context and the two reusable layouts.
struct FontStack {
  FcConfig* config = nullptr;  // held by the font map
  PangoFontMap* fontMap = nullptr;
  PangoContext* context = nullptr;
  PangoLayout* measuring = nullptr;
  PangoLayout* drawing = nullptr;

  explicit FontStack(FcConfig* made) : config(made) {
    fontMap = pango_cairo_font_map_new();
    pango_fc_font_map_set_config(PANGO_FC_FONT_MAP(fontMap), config);
    FcConfigDestroy(config);
    context = pango_font_map_create_context(fontMap);

    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(context, options);
    cairo_font_options_destroy(options);
    // Whole-pixel glyph positions would make widths stop scaling with the size.
    pango_context_set_round_glyph_positions(context, FALSE);
    pango_cairo_context_set_resolution(context, 72.0);

    measuring = pango_layout_new(context);
    drawing = pango_layout_new(context);
  }
};

// Lives for the process: Pango's objects are cheap to keep and costly to make again.
struct TextSystem {
  // Our faces alone: what every text the faces cover is measured and drawn with, so it comes
  // out the same whatever the machine has installed.
  FontStack faces{embeddedFaces().makeConfig(false, false)};
  bool boldAdded = false;  // the bold face joins our set when a bold font is first asked for
  // Our faces, then the machine's fonts: made when a text first needs a character the faces
  // lack. Absent where the machine offers no font.
  std::unique_ptr<FontStack> withSystemFonts;
  bool systemFontsLooked = false;
  std::map<std::tuple<std::string, double, bool>, FontEntry> fonts;
  // The latest texts measured: a text measured again in the same font (the watermark's, 15
  // times a second, changing once a second) is a lookup, not a layout. A few slots, reused in
  // turn, so a slot's string keeps its capacity and a hit allocates nothing.
  struct Measured {
    const FontEntry* font = nullptr;
    std::string text;
    CGSize size;
  };
  std::array<Measured, 8> measured;
  std::size_t nextMeasured = 0;

  // `layout` of our faces' stack after `configure`, or its twin on the machine's fonts when our
  // faces lack one of the characters (the missing-glyph box stays where no font has it).
  template <typename Configure>
  PangoLayout* layoutFor(PangoLayout* FontStack::*layout, const Configure& configure) {
    PangoLayout* ours = faces.*layout;
    configure(ours);
    if (pango_layout_get_unknown_glyphs_count(ours) == 0) return ours;
    if (!systemFontsLooked) {
      systemFontsLooked = true;
      FcConfig* config = embeddedFaces().makeConfig(true);
      FcFontSet* system = FcConfigGetFonts(config, FcSetSystem);
      if (system != nullptr && system->nfont > 0) {
        withSystemFonts = std::make_unique<FontStack>(config);
      } else {
        FcConfigDestroy(config);
      }
    }
    if (!withSystemFonts) return ours;
    PangoLayout* fallback = withSystemFonts.get()->*layout;
    configure(fallback);
    return fallback;
  }

  FontEntry& entry(const UIFont& font) {
    auto key = std::make_tuple(font.familyName(), font.pointSize(), font.isBold());
    auto found = fonts.find(key);
    if (found != fonts.end()) return found->second;
    if (font.isBold() && !boldAdded) {
      boldAdded = true;
      embeddedFaces().addFace(faces.config, Face::Bold);
      pango_fc_font_map_config_changed(PANGO_FC_FONT_MAP(faces.fontMap));
    }
    PangoFontDescription* description = pango_font_description_new();
    pango_font_description_set_family(description, kEmbeddedFamily);
    pango_font_description_set_weight(description, font.isBold() ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_absolute_size(description, font.pointSize() * PANGO_SCALE);
    return fonts.emplace(key, FontEntry{description, std::nullopt}).first->second;
  }
};

TextSystem& system() {
  // Never destroyed: views held by other statics may still measure while those are torn down.
  static TextSystem* instance = new TextSystem();
  return *instance;
}

// A box sized from a measurement may come back a hair narrower (through 32-bit floats): it
// still holds its text whole.
constexpr double kFitTolerance = 0.01;

double fromPango(int units) { return static_cast<double>(units) / PANGO_SCALE; }
int toPango(double points) { return static_cast<int>(std::lround(points * PANGO_SCALE)); }

}  // namespace

PangoLayout* measuringLayout(const UIFont& font, std::string_view text) {
  TextSystem& s = system();
  const PangoFontDescription* description = s.entry(font).description;
  return s.layoutFor(&FontStack::measuring, [&](PangoLayout* layout) {
    pango_layout_set_font_description(layout, description);
    pango_layout_set_text(layout, text.data(), static_cast<int>(text.size()));
  });
}

CGSize measure(const UIFont& font, std::string_view text) {
  TextSystem& s = system();
  const FontEntry* entry = &s.entry(font);
  for (const auto& kept : s.measured) {
    if (kept.font == entry && kept.text == text) return kept.size;
  }
  PangoRectangle logical;
  pango_layout_get_extents(measuringLayout(font, text), nullptr, &logical);
  auto& slot = s.measured[s.nextMeasured];
  s.nextMeasured = (s.nextMeasured + 1) % s.measured.size();
  slot.font = entry;
  slot.text.assign(text);
  slot.size = {fromPango(logical.width), fromPango(logical.height)};
  return slot.size;
}

Metrics metrics(const UIFont& font) {
  TextSystem& s = system();
  FontEntry& entry = s.entry(font);
  if (!entry.metrics) {
    PangoFontMetrics* m = pango_context_get_metrics(s.faces.context, entry.description, nullptr);
    entry.metrics = Metrics{fromPango(pango_font_metrics_get_ascent(m)), fromPango(pango_font_metrics_get_descent(m))};
    pango_font_metrics_unref(m);
  }
  return *entry.metrics;
}

void drawText(cairo_t* cr, std::string_view text, const UIFont& font, const UIColor& color, CGRect box,
              const LineStyle& style) {
  if (text.empty()) return;
  TextSystem& s = system();
  const PangoFontDescription* description = s.entry(font).description;
  const bool limited = style.truncateTail || style.numberOfLines != 1;
  PangoLayout* layout = s.layoutFor(&FontStack::drawing, [&](PangoLayout* l) {
    pango_layout_set_font_description(l, description);
    pango_layout_set_text(l, text.data(), static_cast<int>(text.size()));
    pango_layout_set_width(l, limited ? toPango(box.size.width + kFitTolerance) : -1);
    pango_layout_set_ellipsize(l, style.truncateTail ? PANGO_ELLIPSIZE_END : PANGO_ELLIPSIZE_NONE);
    pango_layout_set_wrap(l, PANGO_WRAP_WORD);
    // A negative height counts lines, a positive one is a limit in units: either way the last
    // line that shows is truncated.
    pango_layout_set_height(l, style.numberOfLines == 1  ? 0
                               : style.numberOfLines > 1 ? -style.numberOfLines
                                                         : toPango(box.size.height));
    pango_layout_set_alignment(l, style.alignment == NSTextAlignment::Center  ? PANGO_ALIGN_CENTER
                                  : style.alignment == NSTextAlignment::Right ? PANGO_ALIGN_RIGHT
                                                                              : PANGO_ALIGN_LEFT);
  });
  PangoRectangle logical;
  pango_layout_get_extents(layout, nullptr, &logical);
  double x = box.minX();
  if (!limited) {
    // Without a width Pango does not align: place the line ourselves.
    const double free = box.size.width - fromPango(logical.width);
    if (style.alignment == NSTextAlignment::Center) x += free / 2.0;
    if (style.alignment == NSTextAlignment::Right) x += free;
  }
  const double y = box.minY() + (box.size.height - fromPango(logical.height)) / 2.0;
  setSourceColor(cr, color.CGColor());
  cairo_move_to(cr, x, y);
  pango_cairo_show_layout(cr, layout);
}

}  // namespace tavrel::text
