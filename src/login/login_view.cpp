#include "login/login_view.hpp"

#include "login/login_background.hpp"
#include "platform/base64.hpp"
#include "platform/notification_center.hpp"

#include <tavrel_sdk/ui/image.hpp>

#include <nlohmann/json.hpp>

#include <utility>

namespace tavrel {
namespace {

constexpr std::int32_t kFormHeight = 370;
constexpr double kLabelHeight = 40.0;
constexpr double kRowHeight = 80.0;  // fields and button
constexpr double kTextInset = 20.0;
constexpr double kCornerRadius = 8.0;

// The layout's halvings are integer divisions: at W = 375 the fields stand at 19, not 19.5.
CGRect rowFrame(std::int32_t centerX, std::int32_t width, std::int32_t y, double height) {
  return CGRectMake(centerX - width / 2, y, width, height);
}

}  // namespace

LoginView::LoginView(CGRect frame) : UIView(frame) {
  setBackgroundColor(UIColor::colorWithRed(62.0 / 255.0, 69.0 / 255.0, 76.0 / 255.0, 1.0));
  // Subviews stack in creation order: the picture lowest.
  createBackground();
  createInformationLabel();
  createUsernameTextField();
  createPasswordTextField();
  createLoginButton();
  NotificationCenter::defaultCenter().addObserver(this, kAuthenticateFailedNotification, this,
                                                  [this](const Notification& n) { handleAuthenticationFailure(n); });
}

LoginView::~LoginView() {
  NotificationCenter::defaultCenter().removeObserver(this, std::string(kAuthenticateFailedNotification), this);
}

LoginView::FormFrames LoginView::formFrames() const {
  const CGSize size = frame().size;
  return {CGRectMake(0.0, 0.0, size.width, size.height), rowFrame(centerX(), labelWidth(), topY(), kLabelHeight),
          rowFrame(centerX(), inputWidth(), topY() + 80, kRowHeight),
          rowFrame(centerX(), inputWidth(), topY() + 170, kRowHeight),
          rowFrame(centerX(), buttonWidth(), topY() + formHeight() - 80, kRowHeight)};
}

void LoginView::layoutSubviews() {
  const FormFrames frames = formFrames();
  const std::pair<UIView*, CGRect> placed[] = {{background().get(), frames.background},
                                               {lblInformation().get(), frames.information},
                                               {txtUsername().get(), frames.username},
                                               {txtPassword().get(), frames.password},
                                               {btnLogin().get(), frames.login}};
  // A game may have replaced an element with none.
  for (const auto& [view, frame] : placed) {
    if (view) view->setFrame(frame);
  }
}

void LoginView::createBackground() {
  // Decoded for every view, never cached: the page is rare and the bytes are not kept.
  const auto png = dataWithBase64EncodedString(loginBackgroundBase64(), /*ignoreUnknownCharacters=*/true);
  setBackground(std::make_shared<UIImageView>(png ? UIImage::imageWithData(*png) : nullptr));
  // Stretched to the whole view, proportions aside.
  background()->setFrame(formFrames().background);
  addSubview(background());
}

void LoginView::createInformationLabel() {
  setLblInformation(std::make_shared<UILabel>(formFrames().information));
  lblInformation()->setBackgroundColor(UIColor::colorWithRed(0.0, 0.0, 0.0, 0.05));
  lblInformation()->setText("Enter your Tavrel login details to start...");
  lblInformation()->setTextColor(UIColor::whiteColor());
  lblInformation()->setAdjustsFontSizeToFitWidth(true);
  addSubview(lblInformation());
}

void LoginView::styleTextField(UITextField& field) {
  field.setBackgroundColor(UIColor::colorWithRed(0.2, 0.2, 0.2, 0.95));
  field.layer().setCornerRadius(kCornerRadius);
  field.layer().setMasksToBounds(true);
  // An empty view that only insets the text.
  field.setLeftView(std::make_shared<UIView>(CGRectMake(0.0, 0.0, kTextInset, field.frame().size.height)));
  field.setLeftViewMode(UITextFieldViewMode::Always);
  field.layer().setBorderWidth(1.0);
  field.layer().setBorderColor(UIColor::colorWithRed(58.0 / 255.0, 58.0 / 255.0, 58.0 / 255.0, 1.0)->CGColor());
}

void LoginView::createUsernameTextField() {
  setTxtUsername(std::make_shared<UITextField>(formFrames().username));
  styleTextField(*txtUsername());
  txtUsername()->setPlaceholder("Tavrel username");
  txtUsername()->setDelegate(this);
  addSubview(txtUsername());
}

void LoginView::createPasswordTextField() {
  setTxtPassword(std::make_shared<UITextField>(formFrames().password));
  styleTextField(*txtPassword());
  txtPassword()->setSecureTextEntry(true);
  txtPassword()->setPlaceholder("Password");
  txtPassword()->setDelegate(this);
  addSubview(txtPassword());
}

void LoginView::createLoginButton() {
  setBtnLogin(UIButton::buttonWithType(UIButtonType::Custom));
  btnLogin()->setFrame(formFrames().login);
  btnLogin()->setTitle("Login", UIControlStateNormal);
  btnLogin()->setTitle("Connecting...", UIControlStateDisabled);
  btnLogin()->setBackgroundColor(UIColor::colorWithRed(1.0, 0.4, 0.0, 1.0));
  // No colour of its own for the disabled title: it falls back to the normal one.
  btnLogin()->setTitleColor(UIColor::whiteColor(), UIControlStateNormal);
  btnLogin()->addTarget(this, &LoginView::loginButtonClicked, UIControlEventTouchUpInside);
  btnLogin()->layer().setCornerRadius(kCornerRadius);
  btnLogin()->layer().setMasksToBounds(true);
  addSubview(btnLogin());
}

void LoginView::loginButtonClicked(UIButton* /*sender*/) {
  hideKeyboard();
  btnLogin()->setAlpha(0.5);
  // Disabled, the button shows "Connecting..." and ignores further taps until the form is given back.
  btnLogin()->setEnabled(false);
  // As typed: no trimming, no test for emptiness.
  nlohmann::json userInfo = {{"username", txtUsername()->text()}, {"password", txtPassword()->text()}};
  NotificationCenter::defaultCenter().postNotificationName(kAuthenticateNotification, this, std::move(userInfo));
}

void LoginView::handleAuthenticationFailure(const Notification& /*notification*/) {
  btnLogin()->setAlpha(1.0);
  btnLogin()->setEnabled(true);
}

bool LoginView::textFieldShouldReturn(UITextField* /*textField*/) {
  hideKeyboard();
  return false;
}

void LoginView::hideKeyboard() {
  txtUsername()->resignFirstResponder();
  txtPassword()->resignFirstResponder();
}

std::int32_t LoginView::buttonWidth() const { return static_cast<std::int32_t>(0.75 * frame().size.width); }
std::int32_t LoginView::inputWidth() const { return static_cast<std::int32_t>(0.9 * frame().size.width); }
std::int32_t LoginView::labelWidth() const { return static_cast<std::int32_t>(0.9 * frame().size.width); }
std::int32_t LoginView::centerX() const { return static_cast<std::int32_t>(frame().size.width / 2.0); }
std::int32_t LoginView::centerY() const { return static_cast<std::int32_t>(frame().size.height / 2.0); }
std::int32_t LoginView::topY() const { return centerY() - formHeight() / 2; }
std::int32_t LoginView::formHeight() const { return kFormHeight; }

}  // namespace tavrel
