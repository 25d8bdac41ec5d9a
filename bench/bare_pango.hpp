#pragma once

// Pango as the toolkit sets it up, without the toolkit: one font set, unhinted, one layout and
// one font description reused. By default the font set holds the faces the library carries; the
// baseline for measuring and drawing text.

#include <tavrel_sdk/ui/geometry.hpp>

#include "ui/embedded_fonts.hpp"

#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>

#include <string>

namespace tavrel::bench {

class BarePango {
 public:
  // Takes `config` over.
  explicit BarePango(double size, FcConfig* config = text::embeddedFaces().makeConfig(false),
                     const char* family = text::kEmbeddedFamily) {
    fontMap_ = pango_cairo_font_map_new();
    pango_fc_font_map_set_config(PANGO_FC_FONT_MAP(fontMap_), config);
    FcConfigDestroy(config);
    context_ = pango_font_map_create_context(fontMap_);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context_, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context_, FALSE);
    pango_cairo_context_set_resolution(context_, 72.0);
    layout_ = pango_layout_new(context_);
    description_ = pango_font_description_new();
    pango_font_description_set_family(description_, family);
    pango_font_description_set_absolute_size(description_, size * PANGO_SCALE);
    pango_layout_set_font_description(layout_, description_);
  }
  ~BarePango() {
    pango_font_description_free(description_);
    g_object_unref(layout_);
    g_object_unref(context_);
    g_object_unref(fontMap_);
  }
  BarePango(const BarePango&) = delete;
  BarePango& operator=(const BarePango&) = delete;

  CGSize measure(const std::string& text, bool bold = false) {
    pango_font_description_set_weight(description_, bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_layout_set_font_description(layout_, description_);
    pango_layout_set_text(layout_, text.data(), static_cast<int>(text.size()));
    PangoRectangle logical;
    pango_layout_get_extents(layout_, nullptr, &logical);
    return {static_cast<double>(logical.width) / PANGO_SCALE, static_cast<double>(logical.height) / PANGO_SCALE};
  }

  // Measures, then draws `text` at (x, y).
  void draw(cairo_t* cr, const std::string& text, double x, double y, bool bold = false) {
    measure(text, bold);
    cairo_move_to(cr, x, y);
    pango_cairo_show_layout(cr, layout_);
  }

 private:
  PangoFontMap* fontMap_ = nullptr;
  PangoContext* context_ = nullptr;
  PangoLayout* layout_ = nullptr;
  PangoFontDescription* description_ = nullptr;
};

}  // namespace tavrel::bench
