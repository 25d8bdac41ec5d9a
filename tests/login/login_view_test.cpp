#include <tavrel_sdk/ui.hpp>

#include "login/login_view.hpp"
#include "platform/notification_center.hpp"
#include "support/game_screen.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace tavrel {
namespace {

// Every post of one notification name with one object, for as long as it lives.
class Posts {
 public:
  Posts(const char* name, const void* object) {
    NotificationCenter::defaultCenter().addObserver(this, name, object,
                                                    [this](const Notification& n) { seen_.push_back(n.userInfo); });
  }
  ~Posts() { NotificationCenter::defaultCenter().removeObserver(this); }
  const std::vector<nlohmann::json>& seen() const { return seen_; }

 private:
  std::vector<nlohmann::json> seen_;
};

class LoginViewTest : public testing::SimulatedGame {
 protected:
  // The form on the game's screen, where taps and typing reach it.
  std::shared_ptr<LoginView> showForm() {
    auto form = std::make_shared<LoginView>(game()->view()->bounds());
    game()->view()->addSubview(form);
    return form;
  }
};

struct Layout {
  double width, height;
  std::int32_t topY;
  CGRect label, username, password, button;
};

TEST_F(LoginViewTest, LaysOutTheFormByIntegerHalvings) {
  const Layout layouts[] = {
      {390, 844, 237,
       CGRectMake(20, 237, 351, 40), CGRectMake(20, 317, 351, 80),
       CGRectMake(20, 407, 351, 80), CGRectMake(49, 527, 292, 80)},
      {375, 667, 148,
       CGRectMake(19, 148, 337, 40), CGRectMake(19, 228, 337, 80),
       CGRectMake(19, 318, 337, 80), CGRectMake(47, 438, 281, 80)},
      {844, 390, 10,
       CGRectMake(43, 10, 759, 40), CGRectMake(43, 90, 759, 80),
       CGRectMake(43, 180, 759, 80), CGRectMake(106, 300, 633, 80)},
      // Lower than the form: it runs over both edges, nothing shrinks or moves.
      {390, 320, -25,
       CGRectMake(20, -25, 351, 40), CGRectMake(20, 55, 351, 80),
       CGRectMake(20, 145, 351, 80), CGRectMake(49, 265, 292, 80)},
  };
  for (const Layout& expected : layouts) {
    SCOPED_TRACE(std::to_string(expected.width) + " x " + std::to_string(expected.height));
    // The origin plays no part.
    const auto form = std::make_shared<LoginView>(CGRectMake(7, 9, expected.width, expected.height));
    EXPECT_EQ(form->topY(), expected.topY);
    EXPECT_EQ(form->formHeight(), 370);
    EXPECT_EQ(form->background()->frame(), CGRectMake(0, 0, expected.width, expected.height));
    EXPECT_EQ(form->lblInformation()->frame(), expected.label);
    EXPECT_EQ(form->txtUsername()->frame(), expected.username);
    EXPECT_EQ(form->txtPassword()->frame(), expected.password);
    EXPECT_EQ(form->btnLogin()->frame(), expected.button);
  }
}

TEST_F(LoginViewTest, LayoutValuesFollowTheFrameButTheFormStays) {
  const auto form = std::make_shared<LoginView>(CGRectMake(0, 0, 390, 844));
  EXPECT_EQ(form->centerX(), 195);
  EXPECT_EQ(form->buttonWidth(), 292);
  form->setFrame(CGRectMake(0, 0, 844, 390));  // a rotation
  EXPECT_EQ(form->centerX(), 422);
  EXPECT_EQ(form->inputWidth(), 759);
  EXPECT_EQ(form->labelWidth(), 759);
  EXPECT_EQ(form->centerY(), 195);
  EXPECT_EQ(form->txtUsername()->frame(), CGRectMake(20, 317, 351, 80)) << "laid out once, at creation";
}

TEST_F(LoginViewTest, ElementsStackAndLookAsDesigned) {
  const auto form = std::make_shared<LoginView>(CGRectMake(0, 0, 390, 844));
  const std::vector<std::shared_ptr<UIView>> order = {form->background(), form->lblInformation(), form->txtUsername(),
                                                      form->txtPassword(), form->btnLogin()};
  EXPECT_EQ(form->subviews(), order);
  EXPECT_EQ(*form->backgroundColor(), UIColor(62 / 255.0, 69 / 255.0, 76 / 255.0, 1.0));
  ASSERT_TRUE(form->background()->image()) << "the picture decodes";
  EXPECT_EQ(form->background()->image()->size(), CGSizeMake(320, 480));

  EXPECT_EQ(form->lblInformation()->text(), "Enter your Tavrel login details to start...");
  EXPECT_EQ(*form->lblInformation()->backgroundColor(), UIColor(0, 0, 0, 0.05));
  EXPECT_EQ(*form->lblInformation()->textColor(), *UIColor::whiteColor());
  EXPECT_TRUE(form->lblInformation()->adjustsFontSizeToFitWidth());

  for (const auto& field : {form->txtUsername(), form->txtPassword()}) {
    EXPECT_EQ(*field->backgroundColor(), UIColor(0.2, 0.2, 0.2, 0.95));
    EXPECT_EQ(field->layer().cornerRadius(), 8.0);
    EXPECT_TRUE(field->layer().masksToBounds());
    EXPECT_EQ(field->layer().borderWidth(), 1.0);
    EXPECT_EQ(field->layer().borderColor(), (CGColorRef{58 / 255.0, 58 / 255.0, 58 / 255.0, 1.0}));
    ASSERT_TRUE(field->leftView());
    EXPECT_EQ(field->leftView()->frame(), CGRectMake(0, 0, 20, 80));
    EXPECT_EQ(field->leftViewMode(), UITextFieldViewMode::Always);
    EXPECT_EQ(field->delegate(), form.get());
  }
  EXPECT_EQ(form->txtUsername()->placeholder(), "Tavrel username");
  EXPECT_FALSE(form->txtUsername()->isSecureTextEntry());
  EXPECT_EQ(form->txtPassword()->placeholder(), "Password");
  EXPECT_TRUE(form->txtPassword()->isSecureTextEntry());

  const auto& button = form->btnLogin();
  EXPECT_EQ(button->buttonType(), UIButtonType::Custom);
  EXPECT_EQ(button->titleForState(UIControlStateNormal), "Login");
  EXPECT_EQ(button->titleForState(UIControlStateDisabled), "Connecting...");
  EXPECT_EQ(*button->backgroundColor(), UIColor(1.0, 0.4, 0.0, 1.0));
  EXPECT_EQ(*button->titleColorForState(UIControlStateNormal), *UIColor::whiteColor());
  EXPECT_EQ(button->layer().cornerRadius(), 8.0);
  EXPECT_TRUE(button->layer().masksToBounds());
  EXPECT_EQ(button->layer().borderWidth(), 0.0);
}

TEST_F(LoginViewTest, DrawsThePictureUnderTheForm) {
  showForm();
  const UIFrame& frame = host().renderFrame();
  auto rgbAt = [&frame](int x, int y) {
    const std::uint32_t pixel = frame.pixels[y * (frame.stride / 4) + x];
    return std::vector<int>{int(pixel >> 16 & 0xff), int(pixel >> 8 & 0xff), int(pixel & 0xff)};
  };
  auto near = [](const std::vector<int>& rgb, const std::vector<int>& expected, int tolerance) {
    for (int i = 0; i < 3; ++i) {
      if (std::abs(rgb[i] - expected[i]) > tolerance) return false;
    }
    return true;
  };
  EXPECT_TRUE(near(rgbAt(60, 560), {255, 102, 0}, 1)) << "the button's left part, beside its title";
  EXPECT_TRUE(near(rgbAt(300, 470), {53, 52, 51}, 12)) << "a field over the picture, at 0.95";
  EXPECT_TRUE(near(rgbAt(5, 100), {38, 38, 37}, 25)) << "the picture's charcoal top third";
  EXPECT_TRUE(near(rgbAt(5, 800), {95, 60, 45}, 40)) << "its warm brown below";
}

TEST_F(LoginViewTest, SubmitsTheTextsAsTypedOnceAndComesBackOnItsOwnFailure) {
  struct Case {
    std::string username, password;
  };
  for (const Case& typed : {Case{"", ""}, Case{"  ann lee ", " p w "}}) {
    SCOPED_TRACE("'" + typed.username + "'");
    const auto form = showForm();
    const Posts submitted(kAuthenticateNotification, form.get());
    if (!typed.username.empty()) {
      ASSERT_TRUE(host().tapElement("Tavrel username"));
      host().typeText(typed.username);
      ASSERT_TRUE(host().tapElement("Password"));
      host().typeText(typed.password);
    }
    ASSERT_TRUE(host().tapElement("Login"));
    ASSERT_EQ(submitted.seen().size(), 1u);
    EXPECT_EQ(submitted.seen()[0], (nlohmann::json{{"username", typed.username}, {"password", typed.password}}));
    EXPECT_EQ(UIResponder::currentFirstResponder(), nullptr) << "the keyboard closes";
    EXPECT_FALSE(form->btnLogin()->isEnabled());
    EXPECT_EQ(form->btnLogin()->alpha(), 0.5);
    EXPECT_EQ(form->btnLogin()->currentTitle(), "Connecting...");

    EXPECT_FALSE(host().tapElement("Login"));
    host().tapElement("Connecting...");
    NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, game()->view().get());
    EXPECT_FALSE(form->btnLogin()->isEnabled()) << "a failure for another object";
    EXPECT_EQ(submitted.seen().size(), 1u) << "a disabled button takes no tap";

    NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, form.get());
    EXPECT_TRUE(form->btnLogin()->isEnabled());
    EXPECT_EQ(form->btnLogin()->alpha(), 1.0);
    EXPECT_EQ(form->btnLogin()->currentTitle(), "Login");
    EXPECT_EQ(form->txtUsername()->text(), typed.username);
    EXPECT_EQ(form->txtPassword()->text(), typed.password);
    EXPECT_EQ(UIResponder::currentFirstResponder(), nullptr) << "no field takes the focus";
    form->removeFromSuperview();
  }
}

TEST_F(LoginViewTest, ReturnClosesTheKeyboardWithoutSubmitting) {
  const auto form = showForm();
  const Posts submitted(kAuthenticateNotification, form.get());
  for (const char* placeholder : {"Tavrel username", "Password"}) {
    ASSERT_TRUE(host().tapElement(placeholder));
    ASSERT_NE(UIResponder::currentFirstResponder(), nullptr);
    host().pressReturn();
    EXPECT_EQ(UIResponder::currentFirstResponder(), nullptr) << placeholder;
  }
  EXPECT_FALSE(form->textFieldShouldReturn(form->txtUsername().get()));
  EXPECT_TRUE(submitted.seen().empty());
  EXPECT_TRUE(form->btnLogin()->isEnabled());
}

TEST_F(LoginViewTest, AGoneViewNoLongerObserves) {
  auto form = std::make_shared<LoginView>(CGRectMake(0, 0, 390, 844));
  const void* address = form.get();
  form.reset();
  // With the observer left behind, this would call into freed memory (ASan reports it).
  NotificationCenter::defaultCenter().postNotificationName(kAuthenticateFailedNotification, address);
}

}  // namespace
}  // namespace tavrel
