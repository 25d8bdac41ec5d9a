#pragma once

// The login form: background picture, a line of instructions, user name and password fields and
// the Login button, laid out from the view's size by integer arithmetic, so the same layout comes
// out at any screen size: at creation, and again by the same rules when the view changes size
// (a window resized), the fields keeping their text and focus. It knows nothing of the service: it posts
// kAuthenticateNotification when the button is tapped and goes back to ready when
// kAuthenticateFailedNotification is posted with it as object.
//
// Thread safety: main thread only, like every view.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include <cstdint>
#include <memory>

namespace tavrel {

struct Notification;

// Posted by LoginView with itself as object and userInfo {"username": ..., "password": ...}, the
// fields' texts exactly as typed (empty strings included).
inline constexpr const char* kAuthenticateNotification = "authenticate";
// Posted to a LoginView (as object, no userInfo) to give the form back after a refused login.
inline constexpr const char* kAuthenticateFailedNotification = "authenticateFailed";

class TAVREL_EXPORT LoginView : public UIView, public UITextFieldDelegate {
 public:
  // Builds the whole form for `frame` and starts observing kAuthenticateFailedNotification.
  // Decodes the background picture anew; a picture that fails to decode leaves the view's
  // own background colour showing.
  explicit LoginView(CGRect frame);
  ~LoginView() override;

  // The form's elements; a setter replaces the reference the view's own operations use.
  const std::shared_ptr<UIImageView>& background() const { return _background; }
  void setBackground(std::shared_ptr<UIImageView> background) { _background = std::move(background); }
  const std::shared_ptr<UILabel>& lblInformation() const { return _lblInformation; }
  void setLblInformation(std::shared_ptr<UILabel> label) { _lblInformation = std::move(label); }
  const std::shared_ptr<UITextField>& txtUsername() const { return _txtUsername; }
  void setTxtUsername(std::shared_ptr<UITextField> field) { _txtUsername = std::move(field); }
  const std::shared_ptr<UITextField>& txtPassword() const { return _txtPassword; }
  void setTxtPassword(std::shared_ptr<UITextField> field) { _txtPassword = std::move(field); }
  const std::shared_ptr<UIButton>& btnLogin() const { return _btnLogin; }
  void setBtnLogin(std::shared_ptr<UIButton> button) { _btnLogin = std::move(button); }

  // The button's action: keyboard closed, the form to waiting (button at alpha 0.5, disabled,
  // showing "Connecting..."), then kAuthenticateNotification, delivered before this returns.
  void loginButtonClicked(UIButton* sender);
  // The form back to ready (alpha 1, enabled); the fields keep what was typed.
  void handleAuthenticationFailure(const Notification& notification);
  // Return closes the keyboard and never submits.
  bool textFieldShouldReturn(UITextField* textField) override;
  // Takes the focus from both fields, whichever holds it.
  void hideKeyboard();

  // The elements take their frames anew for the view's new size.
  void layoutSubviews() override;

  // Layout values from the present frame's width W and height H, each truncated toward zero.
  std::int32_t buttonWidth() const;  // 0.75 W
  std::int32_t inputWidth() const;   // 0.9 W
  std::int32_t labelWidth() const;   // 0.9 W
  std::int32_t centerX() const;      // W / 2
  std::int32_t centerY() const;      // H / 2
  std::int32_t topY() const;         // centerY - formHeight / 2; negative below H = 370
  std::int32_t formHeight() const;   // 370

 private:
  // Where each element stands for the present frame.
  struct FormFrames {
    CGRect background, information, username, password, login;
  };
  FormFrames formFrames() const;
  void createBackground();
  void createInformationLabel();
  // Needs the field's frame: the text inset is as high as the field.
  void styleTextField(UITextField& field);
  void createUsernameTextField();
  void createPasswordTextField();
  void createLoginButton();

  std::shared_ptr<UIImageView> _background;
  std::shared_ptr<UILabel> _lblInformation;
  std::shared_ptr<UITextField> _txtUsername;
  std::shared_ptr<UITextField> _txtPassword;
  std::shared_ptr<UIButton> _btnLogin;
};

}  // namespace tavrel
