// Which fonts a text is laid out in: our faces for every character they have (Cyrillic among
// them), the machine's fonts only for the others, and never an empty line.

#include <tavrel_sdk/ui/font.hpp>

#include "ui/embedded_fonts.hpp"
#include "ui/text_layout.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tavrel {
namespace {

struct Laid {
  int unknownGlyphs = 0;
  std::set<std::string> families;
  double width = 0.0;
};

Laid layOut(const std::string& text, bool bold = false) {
  PangoLayout* layout =
      text::measuringLayout(UIFont("DejaVu Sans", 17.0, false, bold ? UIFontWeightBold : UIFontWeightRegular), text);
  Laid laid;
  laid.unknownGlyphs = pango_layout_get_unknown_glyphs_count(layout);
  for (GSList* run = pango_layout_get_line_readonly(layout, 0)->runs; run != nullptr; run = run->next) {
    PangoFontDescription* description = pango_font_describe(static_cast<PangoGlyphItem*>(run->data)->item->analysis.font);
    laid.families.insert(pango_font_description_get_family(description));
    pango_font_description_free(description);
  }
  PangoRectangle logical;
  pango_layout_get_extents(layout, nullptr, &logical);
  laid.width = logical.width / static_cast<double>(PANGO_SCALE);
  return laid;
}

TEST(TextFonts, OurFacesDrawEveryCharacterTheyHave) {
  for (bool bold : {false, true}) {
    const Laid cyrillic = layOut("2026:03:09T14:05:33+01:00-Игорь-Петров", bold);
    EXPECT_EQ(cyrillic.unknownGlyphs, 0);
    EXPECT_EQ(cyrillic.families, std::set<std::string>{text::kEmbeddedFamily});
  }
}

TEST(TextFonts, CharactersOurFacesLackComeFromTheMachineOrAsBoxes) {
  const Laid mixed = layOut("id-देवनागरी-1");
  EXPECT_GT(mixed.width, layOut("id--1").width + 20.0);
  if (mixed.unknownGlyphs > 0) {
    EXPECT_EQ(mixed.families.count(text::kEmbeddedFamily), 1u);
    GTEST_SKIP() << "no font on this machine has Devanagari: drawn as missing-glyph boxes";
  }
  // The Latin stays ours; only the Devanagari run is the machine's.
  EXPECT_EQ(mixed.families.count(text::kEmbeddedFamily), 1u);
  EXPECT_EQ(mixed.families.size(), 2u);
}

}  // namespace
}  // namespace tavrel
