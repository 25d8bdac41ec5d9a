#include "support/game_screen.hpp"

#include <vector>

namespace tavrel {
namespace {

// Records what reaches it ("began 2": a call with two touches) and passes it on, as a platform view does.
class RecordingView : public UIView {
 public:
  using UIView::UIView;
  std::vector<std::string> calls;
  std::vector<const UITouch*> touches;

  void touchesBegan(const UITouchSet& s, const UIEvent* e) override { record("began", s); UIView::touchesBegan(s, e); }
  void touchesMoved(const UITouchSet& s, const UIEvent* e) override { record("moved", s); UIView::touchesMoved(s, e); }
  void touchesEnded(const UITouchSet& s, const UIEvent* e) override { record("ended", s); UIView::touchesEnded(s, e); }

 private:
  void record(const char* phase, const UITouchSet& set) {
    calls.push_back(phase + (" " + std::to_string(set.size())));
    for (const auto& touch : set) touches.push_back(touch.get());
  }
};

class TouchTest : public testing::SimulatedGame {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    gameView = std::make_shared<RecordingView>(UIScreen::mainScreen().bounds());
    game()->view()->removeFromSuperview();
    game()->setView(gameView);
    window()->setRootViewController(nullptr);
    window()->setRootViewController(game());
  }
  void tap(CGPoint point) { host().fingersDown({{1, point}}); host().fingersUp({{1, point}}); }
  std::shared_ptr<RecordingView> gameView;
};

TEST_F(TouchTest, HitTestingSkipsViewsThatTakeNoTouches) {
  struct Case {
    const char* name;
    void (*change)(UIView&);
    bool frontTakesTouch;
  };
  const Case cases[] = {
      {"plain", [](UIView&) {}, true},
      {"hidden", [](UIView& v) { v.setHidden(true); }, false},
      {"alpha 0.01", [](UIView& v) { v.setAlpha(0.01); }, false},
      {"alpha 0.02", [](UIView& v) { v.setAlpha(0.02); }, true},
      {"no interaction", [](UIView& v) { v.setUserInteractionEnabled(false); }, false},
      {"a label", [](UIView& v) { v.addSubview(std::make_shared<UILabel>(CGRectMake(0, 0, 100, 100))); }, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto back = std::make_shared<UIView>(CGRectMake(0, 0, 200, 200));
    auto front = std::make_shared<UIView>(CGRectMake(50, 50, 100, 100));
    auto child = std::make_shared<UIView>(CGRectMake(10, 10, 20, 20));
    front->addSubview(child);
    back->addSubview(front);
    c.change(*front);
    // The front view's child is reached through it, or not at all; a label above it takes none.
    EXPECT_EQ(back->hitTest({65, 65}, nullptr), c.frontTakesTouch ? child.get() : back.get());
    EXPECT_EQ(back->hitTest({100, 100}, nullptr), c.frontTakesTouch ? front.get() : back.get());
    EXPECT_EQ(back->hitTest({200, 100}, nullptr), nullptr);  // right edge is outside
  }
  EXPECT_EQ(std::make_shared<UIImageView>(CGRectMake(0, 0, 10, 10))->hitTest({5, 5}, nullptr), nullptr);
}

TEST_F(TouchTest, TreeMovesViewsAndConvertsPoints) {
  auto a = std::make_shared<UIView>(CGRectMake(10, 20, 100, 100));
  auto b = std::make_shared<UIView>(CGRectMake(0, 0, 50, 50));
  auto child = std::make_shared<UIView>(CGRectMake(5, 5, 10, 10));
  gameView->addSubview(a);
  gameView->addSubview(b);
  a->addSubview(child);
  EXPECT_EQ(std::tuple(child->window(), child->convertPointToView({1, 1}, nullptr),
                       child->convertPointFromView({16, 26}, nullptr), child->convertPointToView({0, 0}, b.get())),
            std::tuple(window().get(), CGPoint{16, 26}, CGPoint{1, 1}, CGPoint{15, 25}));

  b->addSubview(child);  // leaves a
  EXPECT_TRUE(a->subviews().empty());
  gameView->addSubview(a);  // already a subview: comes to the front
  EXPECT_EQ(gameView->subviews(), (std::vector<std::shared_ptr<UIView>>{b, a}));
  b->removeFromSuperview();
  EXPECT_EQ(child->window(), nullptr);

  // A focused field leaving the window with its tree runs a handler that takes a sibling away.
  auto field = std::make_shared<UITextField>(CGRectMake(0, 0, 10, 10));
  auto sibling = std::make_shared<UIView>();
  b->addSubview(field);
  b->addSubview(sibling);
  b->addSubview(std::make_shared<UIView>());
  gameView->addSubview(b);
  field->addTarget(this, [sibling](UIControl*) { sibling->removeFromSuperview(); }, UIControlEventEditingDidEnd);
  field->becomeFirstResponder();
  b->removeFromSuperview();
  EXPECT_EQ(b->subviews().size(), 3u);  // child, field and the last one
  EXPECT_EQ(b->subviews().back()->window(), nullptr);
  a->setCenter({100, 100});
  EXPECT_EQ(a->frame(), CGRectMake(50, 50, 100, 100));
  a->setBounds(CGRectMake(10, 0, 40, 40));  // the centre stays, the content shifts
  EXPECT_EQ(a->frame(), CGRectMake(80, 80, 40, 40));
  EXPECT_EQ(a->convertPointToView({10, 0}, nullptr), (CGPoint{80, 80}));

  const auto version = a->displayVersion();
  const auto layer = a->layerVersion();
  a->setAlpha(0.5);
  a->layer().setCornerRadius(4);
  a->layer().setCornerRadius(4);  // unchanged
  EXPECT_EQ(a->displayVersion(), version) << "what it drew is composited again";
  EXPECT_EQ(a->layerVersion(), layer + 1);
}

TEST_F(TouchTest, OverlayPassesTouchesToTheControllersViewNotToASiblingBeneath) {
  auto sibling = std::make_shared<RecordingView>(UIScreen::mainScreen().bounds());
  auto overlay = std::make_shared<RecordingView>(UIScreen::mainScreen().bounds());
  overlay->setMultipleTouchEnabled(true);
  gameView->addSubview(sibling);
  gameView->addSubview(overlay);

  EXPECT_FALSE(host().fingersDown({{1, {100, 100}}, {2, {200, 300}}}));
  host().fingersMoved({{1, {120, 110}}});
  host().fingersUp({{1, {120, 110}}, {2, {200, 300}}});
  EXPECT_TRUE(sibling->calls.empty());
  EXPECT_EQ(gameView->calls, (std::vector<std::string>{"began 2", "moved 1", "ended 2"}));  // one call, both fingers
  // One UITouch object per finger for its whole life.
  EXPECT_EQ(overlay->touches[0], overlay->touches[2]);
  EXPECT_EQ(overlay->touches[2], overlay->touches[3]);
}

TEST_F(TouchTest, TouchKeepsItsViewAndSingleTouchViewsTakeOneFinger) {
  auto small = std::make_shared<RecordingView>(CGRectMake(0, 0, 100, 100));
  auto other = std::make_shared<RecordingView>(CGRectMake(200, 200, 100, 100));
  gameView->addSubview(small);
  gameView->addSubview(other);
  host().fingersDown({{1, {50, 50}}});
  host().fingersMoved({{1, {300, 600}}});                 // far outside
  host().fingersDown({{2, {60, 60}}, {4, {250, 250}}});  // a second finger on each single-touch view
  host().fingersUp({{1, {300, 600}}, {2, {60, 60}}, {4, {250, 250}}});
  host().fingersDown({{3, {10, 10}}});  // free again
  EXPECT_EQ(small->calls, (std::vector<std::string>{"began 1", "moved 1", "ended 1", "began 1"}));
  EXPECT_EQ(other->calls, (std::vector<std::string>{"began 1", "ended 1"}));

  // A view destroyed mid-touch is let go of; the touch goes on without it.
  const UITouch* touch = small->touches.back();
  small->removeFromSuperview();
  small.reset();
  host().fingersMoved({{3, {20, 20}}});
  EXPECT_EQ(touch->view(), nullptr);
  host().fingersUp({{3, {20, 20}}});
}

TEST_F(TouchTest, ButtonShowsItsStateAndSendsActions) {
  auto button = UIButton::buttonWithType(UIButtonType::Custom);
  button->setFrame(CGRectMake(0, 0, 100, 50));
  button->setTitle("Login", UIControlStateNormal);
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

  button->removeTarget(this, UIControlEventTouchUpInside);
  tap({50, 25});
  EXPECT_EQ(sent.back(), UIControlEventTouchDown);

  // An action that removes itself, then sends actions of its own, does not keep the next one from running.
  int once = 0, every = 0;
  const int oneShot = 0;
  const auto removingItself = [&](UIControl* c) {
    ++once;
    c->removeTarget(&oneShot, UIControlEventTouchUpInside);
    c->sendActionsForControlEvents(UIControlEventValueChanged);
  };
  button->addTarget(&oneShot, removingItself, UIControlEventTouchUpInside);
  button->addTarget(this, [&](UIControl*) { ++every; }, UIControlEventTouchUpInside);
  tap({50, 25});
  tap({50, 25});
  EXPECT_EQ(std::pair(once, every), std::pair(1, 2));
  button->removeTarget(nullptr, UIControlEventTouchUpInside);  // every target
  tap({50, 25});
  EXPECT_EQ(every, 2);
}

// Typing, a multi-byte backspace and Return are the window tests' and the login form's.
TEST_F(TouchTest, TextFieldTakesFocusFromATapAndMasksASecureText) {
  auto name = std::make_shared<UITextField>(CGRectMake(0, 0, 200, 40));
  auto password = std::make_shared<UITextField>(CGRectMake(0, 100, 200, 40));
  password->setSecureTextEntry(true);
  password->setLeftView(std::make_shared<UIView>(CGRectMake(0, 0, 20, 40)));
  password->setLeftViewMode(UITextFieldViewMode::Always);
  game()->view()->addSubview(name);
  game()->view()->addSubview(password);
  EXPECT_EQ(password->leftView()->superview(), password.get());

  EXPECT_FALSE(host().typeText("x"));  // nothing focused
  tap({100, 120});
  EXPECT_TRUE(host().typeText("p\u00e4ss"));
  EXPECT_EQ(password->displayedText(), "\u2022\u2022\u2022\u2022");
  tap({10, 10});  // focus moves: one first responder
  EXPECT_TRUE(name->isFirstResponder());
  EXPECT_FALSE(password->isFirstResponder());
  EXPECT_EQ(password->text(), "p\u00e4ss");
  name->setText(std::nullopt);
  EXPECT_EQ(name->text(), "");
  {
    testing::ReturnCounter gone;
    password->setDelegate(&gone);
  }
  EXPECT_EQ(password->delegate(), nullptr);  // weak, as the platform's
}

TEST_F(TouchTest, CaretBlinksInPlatformTimeWhileFocused) {
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

  // A field focused by another's resigning handler keeps the focus; no caret blinks without it.
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

  // A responder that will not resign keeps the focus, and says so.
  struct Stubborn final : UITextField {
    using UITextField::UITextField;
    bool canResignFirstResponder() const override { return false; }
  };
  auto stubborn = std::make_shared<Stubborn>(CGRectMake(0, 150, 200, 40));
  game()->view()->addSubview(stubborn);
  ASSERT_TRUE(stubborn->becomeFirstResponder());
  EXPECT_FALSE(stubborn->resignFirstResponder());
}

}  // namespace
}  // namespace tavrel
