#pragma once

// Pango as the toolkit sets it up, without the toolkit: the DejaVu Sans file alone, unhinted,
// one layout and one font description reused. The baseline for measuring text.

#include <tavrel_sdk/ui/geometry.hpp>

#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>

#include <string>

namespace tavrel::bench {

class BarePango {
 public:
  explicit BarePango(double size) {
    FcConfig* config = FcConfigCreate();
    FcConfigAppFontAddFile(config, reinterpret_cast<const FcChar8*>("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"));
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
    description_ = pango_font_description_from_string("DejaVu Sans");
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

  CGSize measure(const std::string& text) {
    pango_layout_set_text(layout_, text.data(), static_cast<int>(text.size()));
    PangoRectangle logical;
    pango_layout_get_extents(layout_, nullptr, &logical);
    return {static_cast<double>(logical.width) / PANGO_SCALE, static_cast<double>(logical.height) / PANGO_SCALE};
  }

 private:
  PangoFontMap* fontMap_ = nullptr;
  PangoContext* context_ = nullptr;
  PangoLayout* layout_ = nullptr;
  PangoFontDescription* description_ = nullptr;
};

}  // namespace tavrel::bench
