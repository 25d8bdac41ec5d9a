#include <tavrel_sdk/ui/controls.hpp>

#include <algorithm>

namespace tavrel {

namespace {

// The caret's blink: visible for half a second, hidden for half a second.
constexpr double kCaretBlinkInterval = 0.5;

// The platform's tint for a system button's title.
std::shared_ptr<UIColor> systemBlueColor() {
  static const auto blue = UIColor::colorWithRed(0.0, 122.0 / 255.0, 1.0, 1.0);
  return blue;
}

bool isUtf8Continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// While above 0, some control is running its actions: removed registrations are only emptied,
// so that the index of the one running still names the next.
int actionsRunning = 0;

// The fields alive, so that a delegate going away unsets itself as the platform's weak one
// would. Never destroyed: fields may outlive the static destructors.
std::vector<UITextField*>& liveTextFields() {
  static auto* fields = new std::vector<UITextField*>;
  return *fields;
}

}  // namespace

// --- UIControl ---------------------------------------------------------------------------

UIControl::UIControl(CGRect frame) : UIView(frame) {}

void UIControl::setEnabled(bool enabled) {
  if (enabled_ == enabled) return;
  enabled_ = enabled;
  if (!enabled) highlighted_ = false;
  setNeedsDisplay();
}

void UIControl::setHighlighted(bool highlighted) {
  if (highlighted_ == highlighted) return;
  highlighted_ = highlighted;
  setNeedsDisplay();
}

UIControlState UIControl::state() const {
  UIControlState state = UIControlStateNormal;
  if (highlighted_) state |= UIControlStateHighlighted;
  if (!enabled_) state |= UIControlStateDisabled;
  return state;
}

void UIControl::addTarget(const void* target, Action action, UIControlEvents controlEvents) {
  if (!action || controlEvents == 0) return;
  registrations_.push_back({target, std::move(action), controlEvents});
}

void UIControl::removeTarget(const void* target, UIControlEvents controlEvents) {
  for (auto& registration : registrations_) {
    if (!target || registration.target == target) registration.events &= ~controlEvents;
  }
  if (actionsRunning == 0) std::erase_if(registrations_, [](const Registration& r) { return r.events == 0; });
}

void UIControl::sendActionsForControlEvents(UIControlEvents controlEvents) {
  // An action may remove the control from its last owner.
  const auto self = weak_from_this().lock();
  // By index, on a copy of each action: an action may add or remove registrations.
  ++actionsRunning;
  for (std::size_t i = 0; i < registrations_.size(); ++i) {
    if ((registrations_[i].events & controlEvents) == 0) continue;
    Action action = registrations_[i].action;
    action(this);
  }
  if (--actionsRunning == 0) {
    std::erase_if(registrations_, [](const Registration& r) { return r.events == 0; });
  }
}

UIView* UIControl::hitTest(CGPoint point, const UIEvent* event) {
  return enabled_ ? UIView::hitTest(point, event) : nullptr;
}

// A control tracks its touches itself and hands none on: the views beneath a button do not
// see the taps meant for it.
void UIControl::touchesBegan(const UITouchSet& /*touches*/, const UIEvent* /*event*/) {
  if (!enabled_) return;
  setHighlighted(true);
  sendActionsForControlEvents(UIControlEventTouchDown);
}

void UIControl::touchesMoved(const UITouchSet& touches, const UIEvent* event) {
  if (!enabled_ || touches.empty()) return;
  setHighlighted(pointInside(touches.front()->locationInView(this), event));
}

void UIControl::touchesEnded(const UITouchSet& touches, const UIEvent* event) {
  if (!enabled_ || touches.empty()) return;
  setHighlighted(false);
  const bool inside = pointInside(touches.front()->locationInView(this), event);
  sendActionsForControlEvents(inside ? UIControlEventTouchUpInside : UIControlEventTouchUpOutside);
}

void UIControl::touchesCancelled(const UITouchSet& /*touches*/, const UIEvent* /*event*/) {
  if (!enabled_) return;
  setHighlighted(false);
  sendActionsForControlEvents(UIControlEventTouchCancel);
}

// --- UILabel -----------------------------------------------------------------------------

UILabel::UILabel(CGRect frame)
    : UIView(frame), font_(UIFont::systemFontOfSize(kLabelFontSize)), textColor_(UIColor::blackColor()) {
  setUserInteractionEnabled(false);
}

void UILabel::setText(std::optional<std::string> text) {
  if (text == text_) return;
  text_ = std::move(text);
  setNeedsDisplay();
}

void UILabel::setFont(std::shared_ptr<UIFont> font) {
  font_ = font ? std::move(font) : UIFont::systemFontOfSize(kLabelFontSize);
  setNeedsDisplay();
}

void UILabel::setTextColor(std::shared_ptr<UIColor> color) {
  textColor_ = color ? std::move(color) : UIColor::blackColor();
  setNeedsDisplay();
}

void UILabel::setTextAlignment(NSTextAlignment alignment) {
  if (alignment == textAlignment_) return;
  textAlignment_ = alignment;
  setNeedsDisplay();
}

void UILabel::setAdjustsFontSizeToFitWidth(bool adjusts) {
  if (adjusts == adjustsFontSizeToFitWidth_) return;
  adjustsFontSizeToFitWidth_ = adjusts;
  setNeedsDisplay();
}

void UILabel::setMinimumScaleFactor(double factor) {
  if (factor == minimumScaleFactor_) return;
  minimumScaleFactor_ = factor;
  setNeedsDisplay();
}

void UILabel::setNumberOfLines(int lines) {
  if (lines == numberOfLines_) return;
  numberOfLines_ = std::max(lines, 0);
  setNeedsDisplay();
}

// --- UITextField -------------------------------------------------------------------------

UITextFieldDelegate::~UITextFieldDelegate() {
  for (UITextField* field : liveTextFields()) {
    if (field->delegate() == this) field->setDelegate(nullptr);
  }
}

UITextField::UITextField(CGRect frame)
    : UIControl(frame), font_(UIFont::systemFontOfSize(kLabelFontSize)), textColor_(UIColor::blackColor()) {
  liveTextFields().push_back(this);
}

UITextField::~UITextField() {
  std::erase(liveTextFields(), this);
  if (caretTimer_) caretTimer_->invalidate();
}

void UITextField::setText(std::optional<std::string> text) {
  std::string value = std::move(text).value_or(std::string());
  if (value == text_) return;
  text_ = std::move(value);
  setNeedsDisplay();
}

void UITextField::setPlaceholder(std::optional<std::string> placeholder) {
  if (placeholder == placeholder_) return;
  placeholder_ = std::move(placeholder);
  setNeedsDisplay();
}

void UITextField::setSecureTextEntry(bool secure) {
  if (secure == secureTextEntry_) return;
  secureTextEntry_ = secure;
  setNeedsDisplay();
}

void UITextField::setDelegate(UITextFieldDelegate* delegate) { delegate_ = delegate; }

void UITextField::setLeftView(std::shared_ptr<UIView> view) {
  if (view == leftView_) return;
  if (leftView_ && leftView_->superview() == this) leftView_->removeFromSuperview();
  leftView_ = std::move(view);
  layoutLeftView();
  setNeedsDisplay();
}

void UITextField::setLeftViewMode(UITextFieldViewMode mode) {
  if (mode == leftViewMode_) return;
  leftViewMode_ = mode;
  layoutLeftView();
  setNeedsDisplay();
}

void UITextField::setFont(std::shared_ptr<UIFont> font) {
  font_ = font ? std::move(font) : UIFont::systemFontOfSize(kLabelFontSize);
  setNeedsDisplay();
}

void UITextField::setTextColor(std::shared_ptr<UIColor> color) {
  textColor_ = color ? std::move(color) : UIColor::blackColor();
  setNeedsDisplay();
}

bool UITextField::isLeftViewShown() const {
  if (!leftView_) return false;
  switch (leftViewMode_) {
    case UITextFieldViewMode::Never: return false;
    case UITextFieldViewMode::WhileEditing: return isFirstResponder();
    case UITextFieldViewMode::UnlessEditing: return !isFirstResponder();
    case UITextFieldViewMode::Always: return true;
  }
  return false;
}

void UITextField::layoutLeftView() {
  if (!leftView_) return;
  if (!isLeftViewShown()) {
    if (leftView_->superview() == this) leftView_->removeFromSuperview();
    return;
  }
  const CGSize size = leftView_->bounds().size;
  leftView_->setFrame({{0.0, (bounds().size.height - size.height) / 2.0}, size});
  if (leftView_->superview() != this) addSubview(leftView_);
}

void UITextField::layoutSubviews() { layoutLeftView(); }

CGRect UITextField::textRectForBounds(CGRect bounds) const {
  if (!isLeftViewShown()) return bounds;
  const double inset = std::min(leftView_->frame().size.width, bounds.size.width);
  return {{bounds.origin.x + inset, bounds.origin.y}, {bounds.size.width - inset, bounds.size.height}};
}

std::string UITextField::displayedText() const {
  if (!secureTextEntry_) return text_;
  std::string bullets;
  for (char c : text_) {
    if (!isUtf8Continuation(c)) bullets += "\u2022";
  }
  return bullets;
}

bool UITextField::isCaretVisible() const { return caretShown_ && isFirstResponder(); }

bool UITextField::canBecomeFirstResponder() const { return isEnabled(); }

bool UITextField::becomeFirstResponder() {
  if (isFirstResponder()) return true;
  // Off screen nobody could type into it, and its caret would blink unseen: as the platform.
  if (!window()) return false;
  if (!UIControl::becomeFirstResponder()) return false;
  // Focused already by a handler of the field that gave up the focus: the caret is running.
  if (caretTimer_) return true;
  setCaretShown(true);
  caretTimer_ = Platform::current().scheduledTimer(kCaretBlinkInterval, [this] { blinkCaret(); });
  layoutLeftView();
  sendActionsForControlEvents(UIControlEventEditingDidBegin);
  return true;
}

bool UITextField::resignFirstResponder() {
  const bool wasFirst = isFirstResponder();
  if (!UIControl::resignFirstResponder()) return false;
  if (!wasFirst) return true;
  if (caretTimer_) {
    caretTimer_->invalidate();
    caretTimer_.reset();
  }
  setCaretShown(false);
  layoutLeftView();
  sendActionsForControlEvents(UIControlEventEditingDidEnd);
  return true;
}

void UITextField::insertText(std::string_view text) {
  // The delegate or an action may remove the field from its last owner before the rest is in.
  const auto self = weak_from_this().lock();
  // Return may come inside typed text: each one goes to the delegate where it stands.
  while (!text.empty()) {
    const std::size_t newline = text.find('\n');
    const std::string_view chunk = text.substr(0, newline);
    if (!chunk.empty()) {
      text_.append(chunk);
      setNeedsDisplay();
      sendActionsForControlEvents(UIControlEventEditingChanged);
    }
    if (newline == std::string_view::npos) break;
    if (delegate_) delegate_->textFieldShouldReturn(this);
    text.remove_prefix(newline + 1);
  }
}

void UITextField::deleteBackward() {
  if (text_.empty()) return;
  std::size_t end = text_.size() - 1;
  while (end > 0 && isUtf8Continuation(text_[end])) --end;
  text_.erase(end);
  setNeedsDisplay();
  sendActionsForControlEvents(UIControlEventEditingChanged);
}

void UITextField::touchesEnded(const UITouchSet& touches, const UIEvent* event) {
  UIControl::touchesEnded(touches, event);
  if (isEnabled() && !touches.empty() && pointInside(touches.front()->locationInView(this), event)) {
    becomeFirstResponder();
  }
}

void UITextField::setCaretShown(bool shown) {
  if (shown == caretShown_) return;
  caretShown_ = shown;
  setNeedsDisplay();
}

void UITextField::blinkCaret() {
  caretShown_ = !caretShown_;
  // Only the caret's own pixels: a blink redraws no text.
  setNeedsDisplayInRect(caretRect());
}

// --- UIButton ----------------------------------------------------------------------------

UIButton::UIButton(CGRect frame, UIButtonType type)
    : UIControl(frame), type_(type), titleFont_(UIFont::systemFontOfSize(kButtonTitleFontSize)) {}

std::shared_ptr<UIButton> UIButton::buttonWithType(UIButtonType type) {
  return std::make_shared<UIButton>(CGRectZero, type);
}

void UIButton::setTitle(std::optional<std::string> title, UIControlState state) {
  if (title) {
    titles_[state] = std::move(*title);
  } else {
    titles_.erase(state);
  }
  setNeedsDisplay();
}

std::optional<std::string> UIButton::titleForState(UIControlState state) const {
  const auto it = titles_.find(state);
  if (it == titles_.end()) return std::nullopt;
  return it->second;
}

void UIButton::setTitleColor(std::shared_ptr<UIColor> color, UIControlState state) {
  if (color) {
    titleColors_[state] = std::move(color);
  } else {
    titleColors_.erase(state);
  }
  setNeedsDisplay();
}

std::shared_ptr<UIColor> UIButton::titleColorForState(UIControlState state) const {
  if (auto it = titleColors_.find(state); it != titleColors_.end()) return it->second;
  if (auto it = titleColors_.find(UIControlStateNormal); it != titleColors_.end()) return it->second;
  return type_ == UIButtonType::System ? systemBlueColor() : UIColor::whiteColor();
}

std::optional<std::string> UIButton::currentTitle() const {
  if (auto title = titleForState(state())) return title;
  return titleForState(UIControlStateNormal);
}

std::shared_ptr<UIColor> UIButton::currentTitleColor() const { return titleColorForState(state()); }

void UIButton::setTitleFont(std::shared_ptr<UIFont> font) {
  titleFont_ = font ? std::move(font) : UIFont::systemFontOfSize(kButtonTitleFontSize);
  setNeedsDisplay();
}

void UIButton::setEnabled(bool enabled) { UIControl::setEnabled(enabled); }

void UIButton::setHighlighted(bool highlighted) { UIControl::setHighlighted(highlighted); }

// --- UIImageView -------------------------------------------------------------------------

UIImageView::UIImageView(CGRect frame) : UIView(frame) { setUserInteractionEnabled(false); }

UIImageView::UIImageView(std::shared_ptr<UIImage> image)
    : UIView(image ? CGRect{{}, image->size()} : CGRectZero), image_(std::move(image)) {
  setUserInteractionEnabled(false);
}

void UIImageView::setImage(std::shared_ptr<UIImage> image) {
  if (image == image_) return;
  image_ = std::move(image);
  setNeedsDisplay();
}

}  // namespace tavrel
