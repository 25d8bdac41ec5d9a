#pragma once

// The toolkit's controls: UIControl with target-action, UILabel, UITextField, UIButton and
// UIImageView, with the platform's defaults (17-point system font for labels and fields,
// 15 for button titles; labels and image views take no touches unless told to).
//
// Thread safety: main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/ui/font.hpp>
#include <tavrel_sdk/ui/image.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel {

// UIControlState: a bit set.
using UIControlState = unsigned;
inline constexpr UIControlState UIControlStateNormal = 0;
inline constexpr UIControlState UIControlStateHighlighted = 1 << 0;
inline constexpr UIControlState UIControlStateDisabled = 1 << 1;
inline constexpr UIControlState UIControlStateSelected = 1 << 2;

using UIControlEvents = unsigned;
inline constexpr UIControlEvents UIControlEventTouchDown = 1 << 0;
inline constexpr UIControlEvents UIControlEventTouchUpInside = 1 << 6;  // 0x40
inline constexpr UIControlEvents UIControlEventTouchUpOutside = 1 << 7;
inline constexpr UIControlEvents UIControlEventTouchCancel = 1 << 8;
inline constexpr UIControlEvents UIControlEventValueChanged = 1 << 12;
inline constexpr UIControlEvents UIControlEventEditingDidBegin = 1 << 16;
inline constexpr UIControlEvents UIControlEventEditingChanged = 1 << 17;
inline constexpr UIControlEvents UIControlEventEditingDidEnd = 1 << 18;

class TAVREL_EXPORT UIControl : public UIView {
 public:
  using Action = std::function<void(UIControl* sender)>;

  explicit UIControl(CGRect frame = CGRectZero);

  bool isEnabled() const { return enabled_; }
  virtual void setEnabled(bool enabled);
  bool isHighlighted() const { return highlighted_; }
  virtual void setHighlighted(bool highlighted);
  UIControlState state() const;

  // addTarget:action:forControlEvents:. `target` identifies the registration for
  // removeTarget; it is not owned and must outlive the control or be removed first.
  // removeTarget with a null target removes every target's registration for those events.
  void addTarget(const void* target, Action action, UIControlEvents controlEvents);
  template <class T, class Sender>
  void addTarget(T* target, void (T::*action)(Sender*), UIControlEvents controlEvents) {
    addTarget(static_cast<const void*>(target), [target, action](UIControl* sender) { (target->*action)(static_cast<Sender*>(sender)); },
              controlEvents);
  }
  void removeTarget(const void* target, UIControlEvents controlEvents);
  // Runs every action registered for any of `controlEvents`, in registration order.
  void sendActionsForControlEvents(UIControlEvents controlEvents);

  // Tracking: highlighted while a finger that began inside is inside; touch up inside sends
  // UIControlEventTouchUpInside. The touches stop here: views beneath see none of them. A
  // disabled control takes no touches (hit testing skips it, so they go to what lies beneath).
  UIView* hitTest(CGPoint point, const UIEvent* event) override;
  void touchesBegan(const UITouchSet& touches, const UIEvent* event) override;
  void touchesMoved(const UITouchSet& touches, const UIEvent* event) override;
  void touchesEnded(const UITouchSet& touches, const UIEvent* event) override;
  void touchesCancelled(const UITouchSet& touches, const UIEvent* event) override;

 private:
  struct Registration {
    const void* target;
    Action action;
    UIControlEvents events;
  };
  bool enabled_ = true;
  bool highlighted_ = false;
  std::vector<Registration> registrations_;
};

enum class NSTextAlignment { Left = 0, Center = 1, Right = 2 };

// Text centred vertically, truncated at its tail with "…": one line by default; with
// numberOfLines other than 1, wrapped at word boundaries onto at most that many lines (0: as
// many as the height holds).
class TAVREL_EXPORT UILabel : public UIView {
 public:
  explicit UILabel(CGRect frame = CGRectZero);

  const std::optional<std::string>& text() const { return text_; }
  void setText(std::optional<std::string> text);
  const std::shared_ptr<UIFont>& font() const { return font_; }
  void setFont(std::shared_ptr<UIFont> font);  // null: the default, 17-point system font
  const std::shared_ptr<UIColor>& textColor() const { return textColor_; }
  void setTextColor(std::shared_ptr<UIColor> color);  // null: black
  NSTextAlignment textAlignment() const { return textAlignment_; }
  void setTextAlignment(NSTextAlignment alignment);
  // Shrinks the font, down to minimumScaleFactor of its size, until the text fits the width.
  bool adjustsFontSizeToFitWidth() const { return adjustsFontSizeToFitWidth_; }
  void setAdjustsFontSizeToFitWidth(bool adjusts);
  double minimumScaleFactor() const { return minimumScaleFactor_; }
  void setMinimumScaleFactor(double factor);
  int numberOfLines() const { return numberOfLines_; }
  void setNumberOfLines(int lines);  // negative counts as 0
  // The font the text is drawn with, after any shrinking to fit.
  std::shared_ptr<UIFont> fontAsDrawn() const;

  void drawRect(CGContextRef context, CGRect rect) override;

 private:
  std::optional<std::string> text_;
  std::shared_ptr<UIFont> font_;
  std::shared_ptr<UIColor> textColor_;
  NSTextAlignment textAlignment_ = NSTextAlignment::Left;
  bool adjustsFontSizeToFitWidth_ = false;
  double minimumScaleFactor_ = 0.0;
  int numberOfLines_ = 1;
};

class UITextField;

class TAVREL_EXPORT UITextFieldDelegate {
 public:
  virtual ~UITextFieldDelegate();
  // Return was pressed in the field; the result is read by nobody but the delegate's caller.
  virtual bool textFieldShouldReturn(UITextField* /*textField*/) { return true; }
};

enum class UITextFieldViewMode { Never = 0, WhileEditing = 1, UnlessEditing = 2, Always = 3 };

// An editable line. A tap focuses it (it becomes first responder and shows a blinking caret);
// typed text, backspace and Return reach the focused field. Only a field in a window takes
// the focus.
class TAVREL_EXPORT UITextField : public UIControl {
 public:
  explicit UITextField(CGRect frame = CGRectZero);
  ~UITextField() override;

  // Never null: the empty string when nothing is typed.
  const std::string& text() const { return text_; }
  void setText(std::optional<std::string> text);
  const std::optional<std::string>& placeholder() const { return placeholder_; }
  void setPlaceholder(std::optional<std::string> placeholder);
  bool isSecureTextEntry() const { return secureTextEntry_; }
  void setSecureTextEntry(bool secure);  // shown as bullets
  UITextFieldDelegate* delegate() const { return delegate_; }
  // Not owned: unset when the delegate is destroyed, as the platform's weak delegate.
  void setDelegate(UITextFieldDelegate* delegate);
  const std::shared_ptr<UIView>& leftView() const { return leftView_; }
  void setLeftView(std::shared_ptr<UIView> view);
  UITextFieldViewMode leftViewMode() const { return leftViewMode_; }
  void setLeftViewMode(UITextFieldViewMode mode);
  const std::shared_ptr<UIFont>& font() const { return font_; }
  void setFont(std::shared_ptr<UIFont> font);  // null: the default, 17-point system font
  const std::shared_ptr<UIColor>& textColor() const { return textColor_; }
  void setTextColor(std::shared_ptr<UIColor> color);  // null: black
  // What the field shows: the text, or bullets for secure entry.
  std::string displayedText() const;
  // Whether the caret is drawn now (focused, in the visible half of its blink).
  bool isCaretVisible() const;
  // Where the text goes within `bounds`: right of the left view while that is shown.
  CGRect textRectForBounds(CGRect bounds) const;

  bool canBecomeFirstResponder() const override;
  bool becomeFirstResponder() override;
  bool resignFirstResponder() override;
  void insertText(std::string_view text) override;  // "\n" is Return: asks the delegate
  void deleteBackward() override;
  void touchesEnded(const UITouchSet& touches, const UIEvent* event) override;
  // Keeps the left view at the left edge, centred vertically, while its mode shows it.
  void layoutSubviews() override;

  void drawRect(CGContextRef context, CGRect rect) override;

 private:
  void setCaretShown(bool shown);
  void blinkCaret();
  CGRect caretRect() const;
  bool isLeftViewShown() const;
  void layoutLeftView();

  std::string text_;
  std::optional<std::string> placeholder_;
  bool secureTextEntry_ = false;
  UITextFieldDelegate* delegate_ = nullptr;
  std::shared_ptr<UIView> leftView_;
  UITextFieldViewMode leftViewMode_ = UITextFieldViewMode::Never;
  std::shared_ptr<UIFont> font_;
  std::shared_ptr<UIColor> textColor_;
  bool caretShown_ = false;
  std::shared_ptr<Timer> caretTimer_;
};

enum class UIButtonType { Custom = 0, System = 1 };

// A button with a title and a title colour per state; a state without its own falls back to
// the normal one. Highlighted while pressed; a disabled button ignores touches.
class TAVREL_EXPORT UIButton : public UIControl {
 public:
  explicit UIButton(CGRect frame = CGRectZero, UIButtonType type = UIButtonType::Custom);
  static std::shared_ptr<UIButton> buttonWithType(UIButtonType type);

  UIButtonType buttonType() const { return type_; }
  void setTitle(std::optional<std::string> title, UIControlState state);
  // The title set for exactly this state, or null.
  std::optional<std::string> titleForState(UIControlState state) const;
  void setTitleColor(std::shared_ptr<UIColor> color, UIControlState state);
  std::shared_ptr<UIColor> titleColorForState(UIControlState state) const;
  // What the button shows in its present state.
  std::optional<std::string> currentTitle() const;
  std::shared_ptr<UIColor> currentTitleColor() const;
  const std::shared_ptr<UIFont>& titleFont() const { return titleFont_; }
  void setTitleFont(std::shared_ptr<UIFont> font);  // null: the default, 15-point system font

  void setEnabled(bool enabled) override;
  void setHighlighted(bool highlighted) override;
  void drawRect(CGContextRef context, CGRect rect) override;

 private:
  UIButtonType type_;
  std::map<UIControlState, std::string> titles_;
  std::map<UIControlState, std::shared_ptr<UIColor>> titleColors_;
  std::shared_ptr<UIFont> titleFont_;
};

// Stretches its picture to its whole frame (scale to fill).
class TAVREL_EXPORT UIImageView : public UIView {
 public:
  explicit UIImageView(CGRect frame = CGRectZero);
  // initWithImage:: the frame takes the picture's size.
  explicit UIImageView(std::shared_ptr<UIImage> image);

  const std::shared_ptr<UIImage>& image() const { return image_; }
  void setImage(std::shared_ptr<UIImage> image);

  void drawRect(CGContextRef context, CGRect rect) override;

 private:
  std::shared_ptr<UIImage> image_;
};

}  // namespace tavrel
