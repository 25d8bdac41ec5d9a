#include <tavrel_sdk/ui/controls.hpp>

namespace tavrel {

UIControl::UIControl(CGRect frame) : UIView(frame) {}
void UIControl::setEnabled(bool enabled) { enabled_ = enabled; }
void UIControl::setHighlighted(bool highlighted) { highlighted_ = highlighted; }
UIControlState UIControl::state() const { return 0; }
void UIControl::addTarget(const void*, Action, UIControlEvents) {}
void UIControl::removeTarget(const void*, UIControlEvents) {}
void UIControl::sendActionsForControlEvents(UIControlEvents) {}
UIView* UIControl::hitTest(CGPoint, const UIEvent*) { return nullptr; }
void UIControl::touchesBegan(const UITouchSet&, const UIEvent*) {}
void UIControl::touchesMoved(const UITouchSet&, const UIEvent*) {}
void UIControl::touchesEnded(const UITouchSet&, const UIEvent*) {}
void UIControl::touchesCancelled(const UITouchSet&, const UIEvent*) {}

UILabel::UILabel(CGRect frame) : UIView(frame) {}
void UILabel::setText(std::optional<std::string> text) { text_ = std::move(text); }
void UILabel::setFont(std::shared_ptr<UIFont> font) { font_ = std::move(font); }
void UILabel::setTextColor(std::shared_ptr<UIColor> color) { textColor_ = std::move(color); }
void UILabel::setTextAlignment(NSTextAlignment alignment) { textAlignment_ = alignment; }
void UILabel::setAdjustsFontSizeToFitWidth(bool adjusts) { adjustsFontSizeToFitWidth_ = adjusts; }
void UILabel::setMinimumScaleFactor(double factor) { minimumScaleFactor_ = factor; }

UITextFieldDelegate::~UITextFieldDelegate() = default;
UITextField::UITextField(CGRect frame) : UIControl(frame) {}
UITextField::~UITextField() = default;
void UITextField::setText(std::optional<std::string> text) { text_ = text.value_or(""); }
void UITextField::setPlaceholder(std::optional<std::string> placeholder) { placeholder_ = std::move(placeholder); }
void UITextField::setSecureTextEntry(bool secure) { secureTextEntry_ = secure; }
void UITextField::setDelegate(UITextFieldDelegate* delegate) { delegate_ = delegate; }
void UITextField::setLeftView(std::shared_ptr<UIView> view) { leftView_ = std::move(view); }
void UITextField::setLeftViewMode(UITextFieldViewMode mode) { leftViewMode_ = mode; }
void UITextField::setFont(std::shared_ptr<UIFont> font) { font_ = std::move(font); }
void UITextField::setTextColor(std::shared_ptr<UIColor> color) { textColor_ = std::move(color); }
std::string UITextField::displayedText() const { return text_; }
bool UITextField::isCaretVisible() const { return false; }
bool UITextField::canBecomeFirstResponder() const { return true; }
bool UITextField::becomeFirstResponder() { return false; }
bool UITextField::resignFirstResponder() { return true; }
void UITextField::insertText(std::string_view) {}
void UITextField::deleteBackward() {}
void UITextField::touchesEnded(const UITouchSet&, const UIEvent*) {}
void UITextField::setCaretShown(bool shown) { caretShown_ = shown; }

UIButton::UIButton(CGRect frame, UIButtonType type) : UIControl(frame), type_(type) {}
std::shared_ptr<UIButton> UIButton::buttonWithType(UIButtonType type) { return std::make_shared<UIButton>(CGRectZero, type); }
void UIButton::setTitle(std::optional<std::string>, UIControlState) {}
std::optional<std::string> UIButton::titleForState(UIControlState) const { return std::nullopt; }
void UIButton::setTitleColor(std::shared_ptr<UIColor>, UIControlState) {}
std::shared_ptr<UIColor> UIButton::titleColorForState(UIControlState) const { return nullptr; }
std::optional<std::string> UIButton::currentTitle() const { return std::nullopt; }
std::shared_ptr<UIColor> UIButton::currentTitleColor() const { return nullptr; }
void UIButton::setTitleFont(std::shared_ptr<UIFont> font) { titleFont_ = std::move(font); }
void UIButton::setEnabled(bool enabled) { UIControl::setEnabled(enabled); }
void UIButton::setHighlighted(bool highlighted) { UIControl::setHighlighted(highlighted); }

UIImageView::UIImageView(CGRect frame) : UIView(frame) {}
UIImageView::UIImageView(std::shared_ptr<UIImage> image) : image_(std::move(image)) {}
void UIImageView::setImage(std::shared_ptr<UIImage> image) { image_ = std::move(image); }

}  // namespace tavrel
