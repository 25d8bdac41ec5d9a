// Buttons and text fields driven through the host's fingers and keys.

#include "support/game_screen.hpp"

#include <gtest/gtest.h>

namespace tavrel {
namespace {

class ControlsTest : public testing::SimulatedGame {
 protected:
  void tap(CGPoint point) {
    host().fingersDown({{1, point}});
    host().fingersUp({{1, point}});
  }
};

TEST_F(ControlsTest, ButtonShowsItsStateAndSendsActions) {
  auto button = UIButton::buttonWithType(UIButtonType::Custom);
  button->setFrame(CGRectMake(0, 0, 100, 50));
  button->setTitle("Login", UIControlStateNormal);
  button->setTitle("Connecting...", UIControlStateDisabled);
  game()->view()->addSubview(button);
  EXPECT_EQ(*button->currentTitleColor(), *UIColor::whiteColor());
  std::vector<UIControlEvents> sent;
  for (UIControlEvents e : {UIControlEventTouchDown, UIControlEventTouchUpInside, UIControlEventTouchUpOutside}) {
    button->addTarget(this, [&sent, e](UIControl*) { sent.push_back(e); }, e);
  }

  host().fingersDown({{1, {50, 25}}});
  EXPECT_TRUE(button->isHighlighted());
  EXPECT_EQ(button->currentTitle(), "Login");  // highlighted falls back to normal
  host().fingersMoved({{1, {150, 25}}});
  EXPECT_FALSE(button->isHighlighted());
  host().fingersUp({{1, {150, 25}}});
  tap({50, 25});
  EXPECT_FALSE(button->isHighlighted()) << "the finger lifted";
  EXPECT_EQ(sent, (std::vector<UIControlEvents>{UIControlEventTouchDown, UIControlEventTouchUpOutside,
                                                UIControlEventTouchDown, UIControlEventTouchUpInside}));

  button->setEnabled(false);
  EXPECT_EQ(button->currentTitle(), "Connecting...");
  tap({50, 25});
  EXPECT_EQ(sent.size(), 4u);
  button->removeTarget(this, UIControlEventTouchUpInside);
  button->setEnabled(true);
  tap({50, 25});
  EXPECT_EQ(sent.back(), UIControlEventTouchDown);

  // An action that removes itself does not keep the next one from running.
  int once = 0;
  int every = 0;
  const int oneShot = 0;
  button->addTarget(
      &oneShot,
      [&](UIControl* c) {
        ++once;
        c->removeTarget(&oneShot, UIControlEventTouchUpInside);
      },
      UIControlEventTouchUpInside);
  button->addTarget(this, [&](UIControl*) { ++every; }, UIControlEventTouchUpInside);
  tap({50, 25});
  tap({50, 25});
  EXPECT_EQ(once, 1);
  EXPECT_EQ(every, 2);
  button->removeTarget(nullptr, UIControlEventTouchUpInside);  // every target
  tap({50, 25});
  EXPECT_EQ(every, 2);
}

class ReturnCounter : public UITextFieldDelegate {
 public:
  bool textFieldShouldReturn(UITextField* field) override {
    ++returns;
    field->resignFirstResponder();
    return false;
  }
  int returns = 0;
};

TEST_F(ControlsTest, TextFieldTakesFocusTextAndReturn) {
  auto name = std::make_shared<UITextField>(CGRectMake(0, 0, 200, 40));
  auto password = std::make_shared<UITextField>(CGRectMake(0, 100, 200, 40));
  password->setSecureTextEntry(true);
  password->setLeftView(std::make_shared<UIView>(CGRectMake(0, 0, 20, 40)));
  password->setLeftViewMode(UITextFieldViewMode::Always);
  ReturnCounter delegate;
  name->setDelegate(&delegate);
  game()->view()->addSubview(name);
  game()->view()->addSubview(password);
  EXPECT_EQ(password->leftView()->superview(), password.get());
  EXPECT_EQ(password->textRectForBounds(password->bounds()), CGRectMake(20, 0, 180, 40));

  EXPECT_FALSE(host().typeText("x"));  // nothing focused
  tap({10, 10});
  ASSERT_TRUE(name->isFirstResponder());
  EXPECT_TRUE(host().typeText("caf\u00e9"));
  host().pressBackspace();  // the whole two-byte "é"
  EXPECT_EQ(name->text(), "caf");
  host().pressReturn();
  EXPECT_EQ(delegate.returns, 1);
  EXPECT_FALSE(name->isFirstResponder());

  tap({100, 120});
  host().typeText("p\u00e4ss");
  EXPECT_EQ(password->displayedText(), "\u2022\u2022\u2022\u2022");
  tap({10, 10});  // focus moves: one first responder
  EXPECT_FALSE(password->isFirstResponder());
  EXPECT_EQ(password->text(), "p\u00e4ss");
  name->setText(std::nullopt);
  EXPECT_EQ(name->text(), "");
  {
    ReturnCounter gone;
    password->setDelegate(&gone);
  }
  EXPECT_EQ(password->delegate(), nullptr);  // weak, as the platform's
}

TEST_F(ControlsTest, CaretBlinksInPlatformTimeWhileFocused) {
  auto field = std::make_shared<UITextField>(CGRectMake(0, 0, 200, 40));
  EXPECT_FALSE(field->becomeFirstResponder());  // not in a window: no focus, no caret timer
  EXPECT_FALSE(UIView().becomeFirstResponder());
  game()->view()->addSubview(field);
  field->becomeFirstResponder();
  EXPECT_TRUE(field->isCaretVisible());
  const auto version = field->displayVersion();
  sim().advance(0.49);
  EXPECT_TRUE(field->isCaretVisible());
  sim().advance(0.01);
  EXPECT_FALSE(field->isCaretVisible());
  EXPECT_EQ(field->displayVersion(), version + 1);
  sim().advance(0.5);
  EXPECT_TRUE(field->isCaretVisible());

  field->resignFirstResponder();
  const auto resigned = field->displayVersion();
  sim().advance(2.0);
  EXPECT_EQ(field->displayVersion(), resigned);  // the timer stopped

  // A handler that focuses a field while another gives up the focus keeps it there, and no
  // caret blinks on in a field without the focus.
  auto tapped = std::make_shared<UITextField>(CGRectMake(0, 50, 200, 40));
  auto next = std::make_shared<UITextField>(CGRectMake(0, 100, 200, 40));
  game()->view()->addSubview(tapped);
  game()->view()->addSubview(next);
  field->addTarget(this, [next](UIControl*) { next->becomeFirstResponder(); }, UIControlEventEditingDidEnd);
  field->becomeFirstResponder();
  EXPECT_FALSE(tapped->becomeFirstResponder());
  EXPECT_TRUE(next->isFirstResponder());
  const auto tappedVersion = tapped->displayVersion();
  next->resignFirstResponder();
  const auto nextVersion = next->displayVersion();
  sim().advance(2.0);
  EXPECT_EQ(tapped->displayVersion(), tappedVersion);
  EXPECT_EQ(next->displayVersion(), nextVersion);
}

}  // namespace
}  // namespace tavrel
