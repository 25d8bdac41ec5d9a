#include <tavrel_sdk/tavrel.h>

#include "support/game_screen.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace tavrel {
namespace {

class Page : public UIViewController {};

class PresentationTest : public testing::SimulatedGame {};

TEST_F(PresentationTest, AnimatedPresentationAndDismissalTakePlatformTime) {
  for (bool animated : {true, false}) {
    SCOPED_TRACE(animated ? "animated" : "not animated");
    auto page = std::make_shared<Page>();
    int presented = 0, dismissed = 0;
    game()->presentViewController(page, animated, [&] { ++presented; });
    // Set when it starts.
    EXPECT_EQ(std::tuple(game()->presentedViewController(), page->presentingViewController(),
                         window()->subviews().back(), host().isCovered()),
              std::tuple(page, game(), page->view(), true));
    if (animated) {
      sim().advance(kPageTransitionDuration / 2);
      EXPECT_GT(page->view()->frame().origin.y, 0.0);  // still sliding up
      EXPECT_TRUE(page->isBeingPresented());
      EXPECT_EQ(presented, 0);
      sim().advance(kPageTransitionDuration / 2);
    } else {
      EXPECT_EQ(presented, 0);  // on the main loop, after the call
      sim().runUntilIdle();
    }
    EXPECT_EQ(presented, 1);
    EXPECT_EQ(page->view()->frame(), UIScreen::mainScreen().bounds());

    page->dismissViewControllerAnimated(animated, [&] { ++dismissed; });  // forwarded to its presenter
    if (animated) {
      sim().advance(kPageTransitionDuration - 0.02);
      EXPECT_EQ(game()->presentedViewController(), page);  // cleared when it ends
      EXPECT_EQ(dismissed, 0);
      sim().advance(0.02);
    }
    sim().runUntilIdle();
    EXPECT_EQ(std::tuple(dismissed, game()->presentedViewController(), page->presentingViewController(),
                         page->view()->superview(), host().isCovered()),
              std::tuple(1, nullptr, nullptr, nullptr, false));
  }
}

TEST_F(PresentationTest, SecondPresentationIsRefusedWithThePlatformsWarning) {
  auto first = std::make_shared<Page>();
  auto second = std::make_shared<Page>();
  game()->presentViewController(first, true, nullptr);
  bool ran = false;
  game()->presentViewController(second, true, [&] { ran = true; });
  sim().advance(1.0);
  EXPECT_EQ(std::tuple(ran, game()->presentedViewController(), second->isViewLoaded()),
            std::tuple(false, first, false));
  EXPECT_THAT(sim().logLines(),
              ::testing::ElementsAre(::testing::MatchesRegex("Attempt to present <Page: 0x[0-9a-f]+> on "
                                                         "<UIViewController: 0x[0-9a-f]+> which is already "
                                                         "presenting <Page: 0x[0-9a-f]+>")));

  // A dismissal cuts a presentation short; the one its completion starts refuses the interrupting one.
  game()->dismissViewControllerAnimated(false, nullptr);
  std::vector<std::string> dismissed;
  game()->presentViewController(second, true, [&] {
    game()->dismissViewControllerAnimated(true, [&] { dismissed.push_back("from completion"); });
  });
  game()->dismissViewControllerAnimated(true, [&] { dismissed.push_back("interrupting"); });
  sim().advance(1.0);
  EXPECT_EQ(dismissed, std::vector<std::string>{"from completion"});
  EXPECT_EQ(game()->presentedViewController(), nullptr);
  EXPECT_THAT(sim().logLines().back(), ::testing::HasSubstr("while a presentation or dismiss is in progress"));

  // Nor does a controller on its way out present: what it showed would go with it.
  game()->presentViewController(first, false, nullptr);
  first->dismissViewControllerAnimated(true, nullptr);
  first->presentViewController(second, false, nullptr);
  EXPECT_EQ(first->presentedViewController(), nullptr);
  EXPECT_THAT(sim().logLines().back(), ::testing::HasSubstr("while it is being dismissed"));
}

TEST_F(PresentationTest, PresentedPagesTakeEveryTouchAndAnAlertsHandlerRunsAfterItHasGone) {
  auto gameButton = std::make_shared<UIButton>(CGRectMake(0, 0, 100, 100));
  int gameTaps = 0;
  gameButton->addTarget(this, [&](UIControl*) { ++gameTaps; }, UIControlEventTouchUpInside);
  game()->view()->addSubview(gameButton);
  auto page = std::make_shared<Page>();
  game()->presentViewController(page, false, nullptr);
  window()->setRootViewController(nullptr);
  window()->setRootViewController(game());  // set again while the page is up: beneath it
  EXPECT_EQ(window()->subviews().back(), page->view());
  // A message that reads as a button's title: a tap by text goes to the frontmost, the button.
  auto alert = UIAlertController::alertControllerWithTitle("T", "OK", UIAlertControllerStyle::Alert);
  std::shared_ptr<UIViewController> presentedInHandler = page;
  int handled = 0;
  // Two actions share a row: the second, "OK", is beside the first, inside the box.
  alert->addAction(UIAlertAction::actionWithTitle("Later", UIAlertActionStyle::Default, nullptr));
  alert->addAction(UIAlertAction::actionWithTitle("OK", UIAlertActionStyle::Default, [&](UIAlertAction*) {
    ++handled;
    presentedInHandler = page->presentedViewController();
  }));
  auto login = std::make_shared<UIButton>(CGRectMake(20, 400, 350, 50));
  login->setTitle("Login", UIControlStateNormal);
  page->view()->addSubview(login);
  page->presentViewController(alert, true, nullptr);
  sim().advance(kAlertTransitionDuration);

  EXPECT_FALSE(host().tapElement("Login"));  // the alert covers the page's button
  EXPECT_TRUE(host().fingersDown({{1, {5, 5}}}));  // the dimmed screen takes it, over the game's button
  host().fingersUp({{1, {5, 5}}});
  EXPECT_EQ(page->presentedViewController(), alert);
  ASSERT_TRUE(host().tapElement("OK"));
  host().tapElement("OK");  // a second tap while it fades does nothing more
  sim().advance(kAlertTransitionDuration / 2);
  EXPECT_EQ(handled, 0);
  EXPECT_LT(alert->view()->alpha(), 1.0);
  sim().advance(kAlertTransitionDuration / 2);
  // The page stays.
  EXPECT_EQ(std::tuple(handled, presentedInHandler, game()->presentedViewController()), std::tuple(1, nullptr, page));

  // Dismissing the page takes down what it presents too.
  page->presentViewController(alert, false, nullptr);
  game()->dismissViewControllerAnimated(false, nullptr);
  EXPECT_EQ(std::tuple(alert->view()->superview(), page->presentedViewController(), gameTaps),
            std::tuple(nullptr, nullptr, 0));
  EXPECT_FALSE(host().fingersDown({{1, {50, 50}}}));
  host().fingersUp({{1, {50, 50}}});
  EXPECT_EQ(gameTaps, 1);
}

TEST_F(PresentationTest, TreeDumpShowsControllersViewsAndControls) {
  auto label = std::make_shared<UILabel>(CGRectMake(1, 2, 30, 40));
  label->setText("hi");
  game()->view()->addSubview(label);
  auto field = std::make_shared<UITextField>(CGRectMake(0, 50, 100, 40));
  field->setLeftView(std::make_shared<UIView>(CGRectMake(0, 0, 20, 40)));
  field->setLeftViewMode(UITextFieldViewMode::Always);
  game()->view()->addSubview(field);
  auto alert = UIAlertController::alertControllerWithTitle("T", "M", UIAlertControllerStyle::Alert);
  alert->addAction(UIAlertAction::actionWithTitle("OK", UIAlertActionStyle::Cancel, nullptr));
  game()->presentViewController(alert, false, nullptr);

  const auto root = nlohmann::json::parse(dumpViewTree())["rootViewController"];
  const auto& dumpedLabel = root["view"]["subviews"][0];
  EXPECT_EQ(std::tuple(dumpedLabel["class"], dumpedLabel["frame"], dumpedLabel["text"], dumpedLabel["font"]["size"]),
            std::tuple("UILabel", nlohmann::json({1.0, 2.0, 30.0, 40.0}), "hi", kLabelFontSize));
  EXPECT_EQ(root["view"]["subviews"][1]["subviews"], nlohmann::json::array()) << "a left view has a key of its own";
  const auto& presented = root["presentedViewController"];
  EXPECT_EQ(std::tuple(presented["class"], presented["actions"], presented["presentedViewController"]),
            std::tuple("UIAlertController", nlohmann::json::parse(R"([{"title": "OK", "style": 1}])"), nullptr));
  // Somewhere in the alert's box: its button, with the action's title, and texts that wrap.
  const std::string box = presented["view"].dump();
  EXPECT_NE(box.find(R"("currentTitle":"OK")"), std::string::npos);
  EXPECT_NE(box.find(R"("numberOfLines":0)"), std::string::npos);
  const auto button = std::dynamic_pointer_cast<UIButton>(alert->view()->subviews().front()->subviews().back());
  EXPECT_TRUE(button && button->titleFont()->isBold()) << "a Cancel action's title";

  // A controller other than the root may present too: what it shows is not left out.
  game()->dismissViewControllerAnimated(false, nullptr);
  auto child = std::make_shared<UIViewController>();
  game()->view()->addSubview(child->view());
  child->presentViewController(alert, false, nullptr);
  EXPECT_NE(nlohmann::json::parse(dumpViewTree())["subviews"].dump().find(R"("currentTitle":"OK")"), std::string::npos);
}

// Lines of 17 points stand 20 apart: the rows from the first ink to the last tell how many show.
TEST_F(PresentationTest, ALabelWrapsIntoItsNumberOfLinesAndNoMore) {
  auto label = std::make_shared<UILabel>(CGRectMake(0, 0, 100, 300));
  label->setText("one two three four five six seven eight nine ten eleven twelve");
  game()->view()->addSubview(label);
  for (const auto& [lines, fewest, most] : {std::tuple{1, 1, 20}, {2, 21, 40}, {0, 100, 300}}) {
    label->setNumberOfLines(lines);
    const UIFrame& frame = host().renderFrame();
    int first = -1, last = -1;
    for (int y = 0; y < 300; ++y) {
      for (int x = 0; x < 100; ++x) {
        if (testing::pixelAt(frame, {x + 0.5, y + 0.5})[3] == 0) continue;
        first = first < 0 ? y : first;
        last = y;
      }
    }
    EXPECT_TRUE(last - first >= fewest && last - first < most) << lines << " lines: rows " << first << " to " << last;
  }
}

class ResizeTest : public testing::SimulatedSession {};

TEST_F(ResizeTest, PageOverlayAndWatermarkFollowEveryChangeOfTheScreen) {
  struct Case {
    const char* what;
    bool fromC;
    testing::ScreenChange start, withPage, inPlay;
  };
  const Case cases[] = {
      {"a window shrunk, then grown", false, {{800, 600}}, {{560, 420}}, {{1024, 768}}},
      {"a phone turned, then a HiDPI screen", false, {{390, 844}, 3}, {{844, 390}, 3}, {{844, 390}, 2}},
      {"from C, a fraction of a point", true, {{800, 600}}, {{640.5, 480}, 2}, {{300, 500}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    testing::resetSessionGlobals();
    auto headless = std::make_shared<HeadlessHost>(c.start.size, c.start.scale);
    UIHost::install(headless);
    tavrel_host* handle = hostForC(headless);
    testing::ResizingHost host{[&](testing::ScreenChange to) {
                                 if (!c.fromC) return headless->resize(to.size, to.scale);
                                 EXPECT_EQ(tavrel_host_resize(handle, to.size.width, to.size.height, to.scale), TAVREL_OK);
                               },
                               nullptr};
    testing::resizeThroughLoginAndPlay(sim(), host, c.withPage, c.inPlay);
    tavrel_host_free(handle);
  }
}

}  // namespace
}  // namespace tavrel
