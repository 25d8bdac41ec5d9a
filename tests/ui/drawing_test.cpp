#include "support/game_screen.hpp"
#include "ui/embedded_fonts.hpp"
#include "ui/text_layout.hpp"

#include <cairo.h>
#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <functional>

namespace tavrel {
namespace {

using testing::pixelAt;
using testing::SimulatedGame;
using Rgba = std::array<int, 4>;

MATCHER_P4(IsRgba, r, g, b, a, "") {
  return std::abs(arg[0] - r) <= 3 && std::abs(arg[1] - g) <= 3 && std::abs(arg[2] - b) <= 3 && std::abs(arg[3] - a) <= 3;
}

// Where anything is drawn inside `area` (points), and how opaque it gets at most.
struct Ink {
  CGRect bounds;
  int maxAlpha = 0;
};
Ink inkIn(const UIFrame& frame, CGRect area) {
  double left = 1e9, top = 1e9, right = -1e9, bottom = -1e9;
  int maxAlpha = 0;
  const double step = 1.0 / frame.scale;
  for (double y = area.minY(); y < area.maxY(); y += step) {
    for (double x = area.minX(); x < area.maxX(); x += step) {
      const int a = pixelAt(frame, {x, y})[3];
      if (a == 0) continue;
      left = std::min(left, x), top = std::min(top, y), right = std::max(right, x + step), bottom = std::max(bottom, y + step);
      maxAlpha = std::max(maxAlpha, a);
    }
  }
  if (maxAlpha == 0) return {};
  return {CGRectMake(left, top, right - left, bottom - top), maxAlpha};
}

std::shared_ptr<UIView> addView(UIView& parent, CGRect frame, std::shared_ptr<UIColor> color) {
  auto view = std::make_shared<UIView>(frame);
  view->setBackgroundColor(std::move(color));
  parent.addSubview(view);
  return view;
}

// Draws content of its own, however small it is.
struct Filled final : UIView {
  using UIView::UIView;
  void drawRect(CGContextRef context, CGRect) override { cairo_paint(context); }
};

class DrawingTest : public SimulatedGame {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    useScreen({390, 844}, 2.0);
  }
  UIView& root() { return *game()->view(); }
};

TEST_F(DrawingTest, ViewsDrawTheirLayersAtTheScreensScale) {
  // A 2 × 2 PNG file written by the toolkit itself: red, green / blue, white.
  useScreen({2, 2}, 1.0);
  const int quad[][5] = {{0, 0, 1, 0, 0}, {1, 0, 0, 1, 0}, {0, 1, 0, 0, 1}, {1, 1, 1, 1, 1}};  // x, y, red, green, blue
  for (const auto& [x, y, r, g, b] : quad) addView(root(), CGRectMake(x, y, 1, 1), UIColor::colorWithRed(r, g, b, 1));
  testing::TemporaryDirectory dir;
  EXPECT_FALSE(host().writePNG(dir.path() + "/missing/quad.png"));
  ASSERT_TRUE(host().writePNG(dir.path() + "/quad.png"));
  const std::string png = testing::readFile(dir.path() + "/quad.png");
  EXPECT_EQ(png.substr(24, 2), "\x08\x06") << "8 bits, RGBA";
  EXPECT_FALSE(UIImage::imageWithData(png.substr(0, png.size() / 2)));
  auto image = std::make_shared<UIImageView>(UIImage::imageWithData(png));
  useScreen({390, 844}, 2.0);
  addView(root(), CGRectMake(10, 10, 100, 100), UIColor::colorWithRed(1, 0, 0, 1));
  addView(root(), CGRectMake(150, 10, 100, 100), UIColor::colorWithRed(0, 0, 1, 1))->layer().setCornerRadius(30);
  auto bordered = addView(root(), CGRectMake(10, 150, 100, 100), UIColor::whiteColor());
  bordered->layer().setBorderWidth(4);
  bordered->layer().setBorderColor(CGColorRef{0, 1, 0, 1});
  // Group opacity: a half-transparent black parent under an opaque white child shows white at half.
  auto faded = addView(root(), CGRectMake(150, 150, 100, 100), UIColor::blackColor());
  faded->setAlpha(0.5);
  addView(*faded, CGRectMake(0, 0, 100, 100), UIColor::whiteColor());
  addView(root(), CGRectMake(270, 150, 100, 100), UIColor::whiteColor())->setAlpha(0.5);
  image->setFrame(CGRectMake(10, 300, 100, 100));
  root().addSubview(image);
  auto mask = addView(root(), CGRectMake(150, 300, 100, 100), nullptr);
  mask->layer().setCornerRadius(50);
  mask->layer().setMasksToBounds(true);
  addView(*mask, CGRectMake(-10, -10, 200, 200), UIColor::colorWithRed(1, 1, 0, 1));
  addView(root(), CGRectMake(270, 300, 100, 100), UIColor::blackColor())->setHidden(true);

  const UIFrame& frame = host().renderFrame();
  ASSERT_EQ(std::pair(frame.width, frame.height), std::pair(780, 1688));
  const struct {
    CGPoint point;
    Rgba expected;
  } cases[] = {
      {{60, 60}, {255, 0, 0, 255}},      {{5, 5}, {0, 0, 0, 0}},            // colour; nothing around it
      {{200, 60}, {0, 0, 255, 255}},     {{151, 11}, {0, 0, 0, 0}},         // a rounded corner stays clear
      {{11, 200}, {0, 255, 0, 255}},     {{60, 200}, {255, 255, 255, 255}}, // border over the content
      {{200, 200}, {255, 255, 255, 128}}, {{320, 200}, {255, 255, 255, 128}},
      {{15, 305}, {255, 0, 0, 255}},     {{105, 395}, {255, 255, 255, 255}}, // the picture stretched
      {{15, 395}, {0, 0, 255, 255}},     {{200, 350}, {255, 255, 0, 255}},
      {{152, 302}, {0, 0, 0, 0}},        {{320, 350}, {0, 0, 0, 0}},        // masked corner; hidden view
  };
  for (const auto& c : cases) {
    EXPECT_THAT(pixelAt(frame, c.point), IsRgba(c.expected[0], c.expected[1], c.expected[2], c.expected[3]))
        << "at " << c.point.x << "," << c.point.y;
  }
  // As layers, a plain background is a colour with no store: id 0, which no store has.
  for (const UILayer& layer : host().renderLayers().layers) EXPECT_EQ(layer.id == 0, layer.pixels == nullptr);
}

TEST_F(DrawingTest, ControlsPlaceTheirTextAsThePlatformDoes) {
  auto empty = std::make_shared<UITextField>(CGRectMake(10, 10, 300, 44));
  empty->setPlaceholder("Placeholder");
  empty->setLeftView(std::make_shared<UIView>(CGRectMake(0, 0, 20, 44)));
  empty->setLeftViewMode(UITextFieldViewMode::Always);
  auto focused = std::make_shared<UITextField>(CGRectMake(10, 100, 300, 44));
  focused->setText("abc");
  auto button = std::make_shared<UIButton>(CGRectMake(10, 200, 200, 44));
  button->setTitle("OK", UIControlStateNormal);
  auto centred = std::make_shared<UILabel>(CGRectMake(10, 300, 300, 44));
  centred->setText("OK");
  centred->setTextAlignment(NSTextAlignment::Center);
  for (const auto& view : std::initializer_list<std::shared_ptr<UIView>>{empty, focused, button, centred}) {
    root().addSubview(view);
  }
  ASSERT_TRUE(focused->becomeFirstResponder());
  ASSERT_TRUE(focused->isCaretVisible());
  const UIFrame& frame = host().renderFrame();

  // The placeholder: after the left view, in the platform's faint grey.
  const Ink placeholder = inkIn(frame, empty->frame());
  EXPECT_GE(placeholder.bounds.minX(), 30.0);
  EXPECT_LE(placeholder.maxAlpha, 77);
  EXPECT_NEAR(placeholder.bounds.midY(), 32.0, 2.0);
  // The caret: a tint-blue bar right after the text.
  const double textEnd = 10 + sizeWithAttributes("abc", {UIFont::systemFontOfSize(kLabelFontSize), nullptr}).width;
  EXPECT_THAT(pixelAt(frame, {textEnd + 1, 122}), IsRgba(0, 122, 255, 255));
  EXPECT_EQ(inkIn(frame, CGRectMake(textEnd + 3, 100, 100, 44)).maxAlpha, 0);
  // The title: centred, in white by default, not dimmed unless pressed.
  const Ink title = inkIn(frame, button->frame());
  EXPECT_GE(title.maxAlpha, 250);
  EXPECT_NEAR(title.bounds.midX(), 110.0, 1.0);
  EXPECT_NEAR(title.bounds.midY(), 222.0, 2.0);
  EXPECT_LE(title.bounds.size.height, kButtonTitleFontSize * 1.2);
  EXPECT_NEAR(inkIn(frame, centred->frame()).bounds.midX(), 160.0, 1.0);
}

TEST_F(DrawingTest, ViewsDrawInsideTheirFramesAtAnySizeAndAMeasuredLabelShowsItsWholeText) {
  const std::string text = "2026:03:09T14:05:33+01:00-no-user-id";
  const auto font = UIFont::monospacedDigitSystemFontOfSize(10, UIFontWeightRegular);
  const CGSize size = sizeWithAttributes(text, {font, nullptr});
  // Sizes handed on as 32-bit floats: a roomy label draws the same line, a narrow one keeps inside.
  for (double width : {static_cast<double>(static_cast<float>(size.width)), size.width + 40, 100.0}) {
    auto label = std::make_shared<UILabel>(CGRectMake(10, width == 100 ? 150 : width > size.width + 1 ? 100 : 50,
                                                      width, size.height));
    label->setText(text);
    label->setFont(font);
    root().addSubview(label);
  }
  root().addSubview(std::make_shared<Filled>(CGRectMake(10, 200, 0.5, 0.5)));
  const UIFrame& frame = host().renderFrame();
  for (double y = 50; y < 50 + size.height; y += 0.5) {
    for (double x = 10; x < 10 + size.width; x += 0.5) {
      ASSERT_EQ(pixelAt(frame, {x, y})[3], pixelAt(frame, {x, y + 50})[3]) << x << "," << y;
    }
  }
  const Ink narrow = inkIn(frame, CGRectMake(0, 140, 390, 40));
  EXPECT_GT(narrow.maxAlpha, 0);
  EXPECT_EQ(CGRectIntersection(narrow.bounds, CGRectMake(10, 150, 100, size.height)), narrow.bounds);
  EXPECT_GT(inkIn(frame, CGRectMake(0, 199, 390, 3)).maxAlpha, 0) << "a view of one pixel draws too";
}

TEST_F(DrawingTest, OnlyWhatChangedIsDrawnAgain) {
  auto still = addView(root(), CGRectMake(0, 0, 390, 200), UIColor::colorWithRed(0.2, 0.4, 0.6, 1));
  auto label = std::make_shared<UILabel>(CGRectMake(40, 300, 120, 20));
  label->setText("moving");
  label->setTextColor(UIColor::whiteColor());
  root().addSubview(label);
  EXPECT_THAT(host().renderFrame().damage, ::testing::ElementsAre(PixelRect{0, 0, 780, 1688}));
  EXPECT_TRUE(host().renderFrame().damage.empty());

  label->setFrame(CGRectMake(200, 500, 120, 20));
  const UIFrame& moved = host().renderFrame();
  ASSERT_EQ(moved.damage.size(), 2u);
  long long area = 0;
  for (const PixelRect& r : moved.damage) area += static_cast<long long>(r.width) * r.height;
  EXPECT_LE(area, 2 * (242 + 2) * (42 + 2)) << "only the label's old and new rectangles";
  // Only the text's pixels changed, the same ones at the old place and the new; the label's
  // lines above and below its text are left alone.
  const PixelRect was = moved.damage[0], now = moved.damage[1];
  EXPECT_EQ((PixelRect{now.x - 320, now.y - 400, now.width, now.height}), was);
  EXPECT_LT(was.height, 42 - 4);
  const CGRect damaged = CGRectMake(now.x / 2.0, now.y / 2.0, now.width / 2.0, now.height / 2.0);
  EXPECT_EQ(CGRectUnion(damaged, inkIn(moved, label->frame()).bounds), damaged);

  // A blink of a focused field's caret draws again only the caret, over the picture below it.
  auto field = std::make_shared<UITextField>(CGRectMake(20, 20, 200, 44));
  field->setText("typed");
  still->addSubview(field);
  ASSERT_TRUE(field->becomeFirstResponder());
  host().renderFrame();
  for (int blink = 0; blink < 3; ++blink) {
    sim().advance(0.5);
    const UIFrame& frame = host().renderFrame();
    ASSERT_EQ(frame.damage.size(), 1u);
    const PixelRect& caret = frame.damage.front();
    EXPECT_LE(caret.width, 2 * 2 + 3);  // a fraction of a point wide more, and a margin
    EXPECT_LE(caret.height, 2 * kLabelFontSize * 1.3);
  }

  // Moves that come with another change, or after a part was drawn again, draw that too.
  using Change = std::function<void(UILabel&)>;
  const auto none = [](UILabel&) {};
  const auto background = [](UILabel& l) { l.setBackgroundColor(UIColor::colorWithRed(0, 0, 0, 0.5)); };
  const std::pair<Change, Change> changes[] = {
      {background, none},
      {background, [](UILabel& l) { l.setBackgroundColor(nullptr); }},
      {[](UILabel& l) { l.layer().setBorderWidth(2), l.layer().setBorderColor(CGColorRef{0, 1, 0, 1}); }, none},
      {none, [](UILabel& l) { l.setText("moving further"); }},
      {[](UILabel& l) { l.setNeedsDisplayInRect(CGRectMake(0, 0, 4, 4)); }, none},
  };
  double y = 560;
  for (const auto& [before, along] : changes) {
    auto moving = std::make_shared<UILabel>(CGRectMake(40, y += 40, 120, 20));
    moving->setText("moving");
    root().addSubview(moving);
    host().renderFrame();
    before(*moving);
    host().renderFrame();
    along(*moving);
    moving->setFrame(CGRectMake(47.5, y + 5, 120, 20));
    host().renderFrame();
  }

  // Rectangles never overlap, even when merging the closest pair to keep few reaches a third:
  // a host's copy of them (Vulkan's) must not write a pixel twice.
  for (CGRect rect : {CGRectMake(0, 0, 50, 1), CGRectMake(0, 5, 50, 1), CGRectMake(45, 2, 50, 1),
                      CGRectMake(200, 300, 50, 50), CGRectMake(100, 600, 50, 50)}) {
    addView(root(), rect, UIColor::colorWithRed(1, 0, 0, 1));
  }
  const std::vector<PixelRect> merged = host().renderFrame().damage;
  for (std::size_t i = 0; i < merged.size(); ++i) {
    for (std::size_t j = i + 1; j < merged.size(); ++j) {
      const PixelRect& a = merged[i];
      const PixelRect& b = merged[j];
      EXPECT_FALSE(a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height)
          << i << " and " << j;
    }
  }

  // What was drawn in parts equals a frame drawn whole.
  const UIFrame& last = host().renderFrame();
  std::vector<std::uint32_t> partial(last.pixels, last.pixels + last.height * last.stride / 4);
  UIHost::install(std::make_shared<HeadlessHost>(CGSize{390, 844}, 2.0));
  const UIFrame& whole = host().renderFrame();
  EXPECT_TRUE(std::equal(partial.begin(), partial.end(), whole.pixels));
}

// Counts its drawings.
class CountingLabel final : public UILabel {
 public:
  using UILabel::UILabel;
  int drawn = 0;
  void drawRect(CGContextRef context, CGRect rect) override {
    ++drawn;
    UILabel::drawRect(context, rect);
  }
};

TEST_F(DrawingTest, AViewKeepsWhatItDrewAndDrawsAgainOnlyWhenAsked) {
  auto label = std::make_shared<CountingLabel>(CGRectMake(10, 10, 100, 20));
  label->setText("kept");
  label->setTextColor(UIColor::whiteColor());
  root().addSubview(label);
  const Ink first = inkIn(host().renderFrame(), CGRectMake(0, 0, 390, 100));
  ASSERT_GT(first.maxAlpha, 200);
  const int drawnOnce = label->drawn;
  // Moved, faded, hidden: what it drew is composited, on whole pixels.
  for (int step = 1; step <= 20; ++step) {
    label->setFrame(CGRectMake(10 + 7.25 * step, 10 + step, 100, 20));
    host().renderFrame();
  }
  label->setAlpha(0.5);
  label->setHidden(true);
  host().renderFrame();
  label->setHidden(false);
  const Ink moved = inkIn(host().renderFrame(), CGRectMake(0, 0, 390, 100));
  EXPECT_EQ(label->drawn, drawnOnce);
  EXPECT_NEAR(moved.bounds.origin.x - first.bounds.origin.x, 145.0, 0.5);
  EXPECT_EQ(moved.bounds.size, first.bounds.size) << "the same pixels, a whole number of them further";
  EXPECT_NEAR(moved.maxAlpha, first.maxAlpha / 2, 2);

  // What asks for a drawing gets one each, and no more.
  const std::pair<const char*, std::function<void()>> asks[] = {
      {"setNeedsDisplay", [&] { label->setNeedsDisplay(); }},
      {"setNeedsDisplayInRect", [&] { label->setNeedsDisplayInRect(CGRectMake(0, 0, 10, 10)); }},
      {"a new text", [&] { label->setText("changed"); }},
      {"a new size about the same centre", [&] { label->setFrame(CGRectMake(145, 30, 120, 20)); }},
      {"a new scale", [&] { static_cast<HeadlessHost&>(host()).resize({390, 844}, 3.0); }},
  };
  for (const auto& [what, ask] : asks) {
    SCOPED_TRACE(what);
    const int before = label->drawn;
    ask();
    host().renderFrame();
    host().renderFrame();
    EXPECT_EQ(label->drawn, before + 1);
  }

  // Moved over a rounded view, the text blends onto it; the view's new colour shows at once.
  auto below = addView(root(), CGRectMake(0, 150, 150, 30), UIColor::colorWithRed(0, 0, 1, 1));
  below->layer().setCornerRadius(8);
  root().addSubview(label);
  label->setAlpha(1);
  label->setFrame(CGRectMake(20, 160, 120, 20));
  EXPECT_THAT(pixelAt(host().renderFrame(), {138, 161}), IsRgba(0, 0, 255, 255));
  below->setBackgroundColor(UIColor::colorWithRed(1, 0, 0, 1));
  EXPECT_THAT(pixelAt(host().renderFrame(), {145, 165}), IsRgba(255, 0, 0, 255));

  // The store is the label's size at the scale, and goes with the label; a view that draws
  // nothing of its own keeps none.
  EXPECT_EQ(host().backingStoreBytes(*label), 360u * 60 * 4);
  struct Plain final : UIView {
    using UIView::UIView;
  };
  auto plain = std::make_shared<Plain>(CGRectMake(0, 0, 50, 5));
  label->addSubview(plain);
  host().renderFrame();
  EXPECT_EQ(host().backingStoreBytes(*plain), 0u);
  const std::size_t all = host().backingStoreBytes();
  label->removeFromSuperview();
  host().renderFrame();
  EXPECT_EQ(host().backingStoreBytes(*label), 0u);
  EXPECT_EQ(host().backingStoreBytes(), all - 360u * 60 * 4);
}

TEST(TextTest, SizesAreExactStableAndInProportion) {
  const std::string text = "2026:03:09T14:05:33+01:00-no-user-id";
  const CGSize ten = sizeWithAttributes(text, {UIFont::monospacedDigitSystemFontOfSize(10, UIFontWeightRegular), nullptr});
  EXPECT_NEAR(ten.width, 199.62, 0.01);
  EXPECT_NEAR(ten.height, 11.64, 0.01);
  for (double size : {5.0, 17.0, 30.0}) {
    const CGSize scaled = sizeWithAttributes(text, {UIFont::systemFontOfSize(size), nullptr});
    EXPECT_NEAR(scaled.width, ten.width * size / 10.0, 0.01 * size);
    EXPECT_NEAR(scaled.height, ten.height * size / 10.0, 0.01 * size);
  }
  EXPECT_EQ(sizeWithAttributes(text, {}), sizeWithAttributes(text, {UIFont::systemFontOfSize(12), nullptr}));
  EXPECT_NEAR(UIFont::systemFontOfSize(10)->lineHeight(), ten.height, 0.01);
  EXPECT_GT(sizeWithAttributes("Login", {UIFont::boldSystemFontOfSize(17), nullptr}).width,
            sizeWithAttributes("Login", {UIFont::systemFontOfSize(17), nullptr}).width);
}

TEST(TextTest, LabelsShrinkToFitTheirWidth) {
  const std::string text = "Enter your Tavrel login details to start...";
  const struct {
    double width;
    bool adjusts;
    double minimumScale;
    double expectedAtMost, expectedAtLeast;
  } cases[] = {
      {300, true, 0.0, 16.9, 10.0},   // shrinks until it fits
      {1000, true, 0.0, 17.0, 17.0},  // fits already
      {300, false, 0.0, 17.0, 17.0},  // not asked to
      {100, true, 0.9, 15.3, 15.3},   // stops at the factor
      {20, true, 0.0, 6.0, 6.0},      // or at the smallest size, without one
  };
  for (const auto& c : cases) {
    UILabel label(CGRectMake(0, 0, c.width, 40));
    label.setText(text);
    label.setAdjustsFontSizeToFitWidth(c.adjusts);
    label.setMinimumScaleFactor(c.minimumScale);
    const double size = label.fontAsDrawn()->pointSize();
    EXPECT_LE(size, c.expectedAtMost + 1e-9) << c.width;
    EXPECT_GE(size, c.expectedAtLeast - 1e-9) << c.width;
    if (c.expectedAtLeast < c.expectedAtMost) {  // as large as fits
      EXPECT_LE(sizeWithAttributes(text, {label.fontAsDrawn(), nullptr}).width, c.width);
      EXPECT_GT(sizeWithAttributes(text, {label.fontAsDrawn()->fontWithSize(size + 0.5), nullptr}).width, c.width);
    }
  }
}

// Our faces lay out every character they have, Cyrillic among them, whatever fonts the machine has.
TEST(TextFonts, OurFacesDrawEveryCharacterTheyHave) {
  for (bool bold : {false, true}) {
    PangoLayout* layout = text::measuringLayout(
        UIFont("DejaVu Sans", 17.0, false, bold ? UIFontWeightBold : UIFontWeightRegular), "14:05:33-Игорь-Петров");
    EXPECT_EQ(pango_layout_get_unknown_glyphs_count(layout), 0);
    for (GSList* run = pango_layout_get_line_readonly(layout, 0)->runs; run != nullptr; run = run->next) {
      PangoFontDescription* font = pango_font_describe(static_cast<PangoGlyphItem*>(run->data)->item->analysis.font);
      EXPECT_STREQ(pango_font_description_get_family(font), text::kEmbeddedFamily) << bold;
      pango_font_description_free(font);
    }
  }
}

}  // namespace
}  // namespace tavrel
