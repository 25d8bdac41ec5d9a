// What the controls draw of their own (drawRect), and the label's shrinking to fit.

#include <tavrel_sdk/ui/controls.hpp>

#include "ui/cairo_support.hpp"
#include "ui/text_layout.hpp"

#include <cairo.h>

#include <algorithm>

namespace tavrel {

namespace {

// The platform's placeholderText and tint colours.
const UIColor kPlaceholderColor(0.235, 0.235, 0.263, 0.3);
const UIColor kTintColor(0.0, 122.0 / 255.0, 1.0, 1.0);
const UIColor kBlack(0.0, 0.0, 0.0, 1.0);
const UIColor kWhite(1.0, 1.0, 1.0, 1.0);

constexpr double kCaretWidth = 2.0;
// With no minimumScaleFactor a label shrinks no further than this.
constexpr double kSmallestShrunkFontSize = 6.0;
// Each step of the search for a fitting size takes this much off.
constexpr double kShrinkStep = 0.98;

const UIFont& orDefault(const std::shared_ptr<UIFont>& font, std::shared_ptr<UIFont>& fallback, double size) {
  if (font) return *font;
  if (!fallback) fallback = UIFont::systemFontOfSize(size);
  return *fallback;
}

// The caret after `textWidth` of text in `box`. While editing the line does not truncate: it
// slides left so that its end, where typing goes, stays in view with the caret after it.
CGRect caretAfter(double textWidth, const UIFont& font, CGRect box) {
  const double x = box.minX() + std::max(0.0, std::min(textWidth, box.size.width - kCaretWidth));
  const double height = font.lineHeight();
  return {{x, box.midY() - height / 2.0}, {kCaretWidth, height}};
}

}  // namespace

std::shared_ptr<UIFont> UILabel::fontAsDrawn() const {
  std::shared_ptr<UIFont> font = font_ ? font_ : UIFont::systemFontOfSize(kLabelFontSize);
  const double width = bounds().size.width;
  if (!adjustsFontSizeToFitWidth_ || numberOfLines_ != 1 || !text_ || text_->empty() || width <= 0.0) return font;
  const double natural = text::measure(*font, *text_).width;
  if (natural <= width) return font;
  const double smallest = minimumScaleFactor_ > 0.0 ? font->pointSize() * std::min(minimumScaleFactor_, 1.0)
                                                    : std::min(font->pointSize(), kSmallestShrunkFontSize);
  // Unhinted widths grow in proportion to the size, so one division lands within a step.
  double size = std::max(smallest, font->pointSize() * width / natural);
  while (size > smallest && text::measure(*font->fontWithSize(size), *text_).width > width) {
    size = std::max(smallest, size * kShrinkStep);
  }
  return font->fontWithSize(size);
}

void UILabel::drawRect(CGContextRef context, CGRect /*rect*/) {
  if (!text_ || text_->empty()) return;
  text::LineStyle style;
  style.alignment = textAlignment_;
  style.numberOfLines = numberOfLines_;
  text::drawText(context, *text_, *fontAsDrawn(), textColor_ ? *textColor_ : kBlack, bounds(), style);
}

CGRect UITextField::caretRect() const {
  const std::string shown = displayedText();
  const CGRect box = textRectForBounds(bounds());
  return caretAfter(shown.empty() ? 0.0 : text::measure(*font_, shown).width, *font_, box);
}

void UITextField::drawRect(CGContextRef context, CGRect /*rect*/) {
  const UIFont& font = *font_;  // never null: setFont(nullptr) restores the default
  const CGRect box = textRectForBounds(bounds());
  cairo_save(context);
  cairo_rectangle(context, box.origin.x, box.origin.y, box.size.width, box.size.height);
  cairo_clip(context);

  const std::string shown = displayedText();
  const bool editing = isFirstResponder() && !shown.empty();
  const double natural = editing ? text::measure(font, shown).width : 0.0;
  const CGRect caret = caretAfter(natural, font, box);
  text::LineStyle style;
  if (shown.empty()) {
    if (placeholder_) text::drawText(context, *placeholder_, font, kPlaceholderColor, box, style);
  } else if (editing) {
    style.truncateTail = false;
    text::drawText(context, shown, font, *textColor_, {{caret.minX() - natural, box.minY()}, {natural, box.size.height}},
                   style);
  } else {
    text::drawText(context, shown, font, *textColor_, box, style);
  }

  if (isCaretVisible()) {
    setSourceColor(context, kTintColor.CGColor());
    cairo_rectangle(context, caret.origin.x, caret.origin.y, caret.size.width, caret.size.height);
    cairo_fill(context);
  }
  cairo_restore(context);
}

void UIButton::drawRect(CGContextRef context, CGRect /*rect*/) {
  const std::optional<std::string> title = currentTitle();
  if (!title || title->empty()) return;
  std::shared_ptr<UIFont> fallback;
  const UIFont& font = orDefault(titleFont_, fallback, kButtonTitleFontSize);
  std::shared_ptr<UIColor> color = currentTitleColor();
  const UIColor& base = color ? *color : (type_ == UIButtonType::System ? kTintColor : kWhite);
  text::LineStyle style;
  style.alignment = NSTextAlignment::Center;
  // Pressed, a title with no colour of its own for the state dims, as the platform's does.
  const bool dims = isHighlighted() && !titleColors_.contains(UIControlStateHighlighted);
  const UIColor shown = dims ? UIColor(base.red(), base.green(), base.blue(), base.alpha() * 0.5) : base;
  text::drawText(context, *title, font, shown, bounds(), style);
}

void UIImageView::drawRect(CGContextRef context, CGRect /*rect*/) {
  if (!image_ || image_->pixelWidth() <= 0 || image_->pixelHeight() <= 0) return;
  const CGRect box = bounds();
  cairo_save(context);
  cairo_rectangle(context, box.origin.x, box.origin.y, box.size.width, box.size.height);
  cairo_clip(context);
  cairo_translate(context, box.origin.x, box.origin.y);
  cairo_scale(context, box.size.width / image_->pixelWidth(), box.size.height / image_->pixelHeight());
  cairo_set_source_surface(context, image_->surface(), 0.0, 0.0);
  cairo_pattern_t* pattern = cairo_get_source(context);
  cairo_pattern_set_filter(pattern, CAIRO_FILTER_GOOD);
  // Edge pixels repeat outward, so the picture's border is not blended with transparency.
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
  cairo_paint(context);
  cairo_restore(context);
}

}  // namespace tavrel
