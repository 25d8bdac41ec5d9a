#include <tavrel_sdk/ui/controls.hpp>

namespace tavrel {

std::shared_ptr<UIFont> UILabel::fontAsDrawn() const {
  return font_ ? font_ : UIFont::systemFontOfSize(kLabelFontSize);
}

void UILabel::drawRect(CGContextRef, CGRect) {}
void UITextField::drawRect(CGContextRef, CGRect) {}
void UIButton::drawRect(CGContextRef, CGRect) {}
void UIImageView::drawRect(CGContextRef, CGRect) {}

}  // namespace tavrel
