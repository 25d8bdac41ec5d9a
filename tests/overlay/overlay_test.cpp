// The overlay over a simulated game: attachment, watermark ticks in virtual time, touches into a real event file.

#include "overlay/overlay_view.hpp"
#include "recording/event_file_reader.hpp"
#include "support/game_screen.hpp"

#include <algorithm>
#include <filesystem>
#include <regex>

namespace tavrel {
namespace {

// Measures every text as `textSize`, so placements do not depend on the font.
class FixedTextOverlay : public OverlayView {
 public:
  using OverlayView::OverlayView;
  CGSize textSize = CGSizeMake(300.0, 12.0);
  mutable int measured = 0;  // one measurement a tick

 protected:
  CGSize measureText(const std::string&, const TextAttributes&) const override {
    ++measured;
    return textSize;
  }
};

// Stands for the game's controller: counts the touches that reach it along the responder chain.
class TouchCountingGame : public UIViewController {
 public:
  std::size_t seen = 0;
  void touchesBegan(const UITouchSet& t, const UIEvent*) override { seen += t.size(); }
  void touchesMoved(const UITouchSet& t, const UIEvent*) override { seen += t.size(); }
  void touchesEnded(const UITouchSet& t, const UIEvent*) override { seen += t.size(); }
  void touchesCancelled(const UITouchSet& t, const UIEvent*) override { seen += t.size(); }
};

class Overlay : public testing::SimulatedGame {
 protected:
  // The singleton's overlay over the fixture's game.
  std::shared_ptr<OverlayView> attach() {
    sdk().initialiseOverlay(game(), std::nullopt);
    return sdk().overlayView();
  }
  std::shared_ptr<FixedTextOverlay> attachFixedText(CGSize screen) {
    useScreen(screen);
    auto overlay = std::make_shared<FixedTextOverlay>(UIScreen::mainScreen().bounds());
    game()->view()->addSubview(overlay);
    overlay->showWatermark();
    started_ = sim().elapsed();
    return overlay;
  }
  // Runs the watermark's next `n` ticks, landing between two ticks.
  void ticks(int n) {
    ticked_ += n;
    sim().advance(started_ + (ticked_ + 0.5) * OverlayView::kTimerInterval - sim().elapsed());
  }
  static std::vector<float> labelXs(const OverlayView& overlay) {
    std::vector<float> xs;
    for (const auto& label : overlay.textViews()) xs.push_back(static_cast<float>(label->frame().origin.x));
    return xs;
  }

  // Records go to a real file; every call starts a new run of the rate limit.
  void record() {
    sdk().initialiseEventsWithGameEventUrl(std::nullopt, "https://127.0.0.1:9/i.evt", sim().currentMilliseconds());
    sim().runUntilIdle();
  }
  void newRun() { sim().advance(1.5); }
  std::vector<std::vector<std::int32_t>> records() {
    const std::string path = documents() + "/" + _inputEventFilename.get().value_or("?");
    std::vector<std::vector<std::int32_t>> payloads;
    if (!std::filesystem::exists(path)) return payloads;
    for (const auto& record : readEventFile(testing::readFile(path)).inputRecords) payloads.push_back(record.payload);
    return payloads;
  }

 private:
  double started_ = 0.0;
  int ticked_ = 0;
};

TEST_F(Overlay, AttachesOnceAndSwitchesBeforeSetUpAreNotRemembered) {
  sdk().showTouches();
  sdk().showWatermark();
  const std::string token(24, 'a');
  sdk().initialiseOverlay(game(), token + "USERID-0123456789abcdefg");
  const auto overlay = sdk().overlayView();
  ASSERT_TRUE(overlay);
  EXPECT_EQ(std::tuple(overlay->superview(), sdk().parentViewController(), overlay->touchesEnabled(),
                       overlay->watermarkEnabled(), overlay->subviews().size()),
            std::tuple(game()->view().get(), game(), false, false, 0u));

  const auto other = std::make_shared<UIViewController>();
  sdk().initialiseOverlay(other, std::nullopt);
  sdk().showOverlay(other);
  EXPECT_EQ(std::tuple(sdk().overlayView(), sdk().parentViewController(), TavrelSDK::getUserId()),
            std::tuple(overlay, game(), "USERID-0123456789abcdefg"));
}

TEST_F(Overlay, NullControllerMeansTheApplicationsRootOrNothing) {
  sdk().showOverlay(nullptr);  // no delegate yet: made, attached to nothing, for good
  ASSERT_TRUE(sdk().overlayView());
  EXPECT_EQ(sdk().overlayView()->superview(), nullptr);
  EXPECT_EQ(sdk().parentViewController(), nullptr);

  auto delegate = std::make_shared<UIApplicationDelegate>();
  delegate->setWindow(window());
  UIApplication::sharedApplication().setDelegate(delegate);
  EXPECT_EQ(sdk().setViewController(nullptr), game());
  sdk().setOverlayView(nullptr);
  sdk().showOverlay(nullptr);
  EXPECT_EQ(sdk().overlayView()->superview(), game()->view().get());
  UIApplication::sharedApplication().setDelegate(nullptr);
}

TEST_F(Overlay, ScreenGivesFontSizeCanvasAndWholePointsForTouches) {
  struct Case {
    CGSize screen;
    double fontSize;
    std::int32_t landscape;
  };
  for (const Case& c : {Case{{1920, 1080}, 30, 1}, Case{{844, 390}, 10, 1}, Case{{667, 375}, 10, 1},
                        Case{{1280, 720}, 20, 1}, Case{{375, 812.5}, 22, 0}, Case{{500.9, 500}, 13, 0}}) {
    SCOPED_TRACE(std::to_string(c.screen.width) + " x " + std::to_string(c.screen.height));
    testing::resetSessionGlobals();
    const auto overlay = attachFixedText(c.screen);
    EXPECT_EQ(overlay->font()->pointSize(), c.fontSize);
    EXPECT_EQ(overlay->watermark().getCanvasHeight(), static_cast<float>(c.screen.height));  // fraction kept
    record();
    overlay->showTouches();
    host().fingersDown({{1, {50, 50}}});
    host().fingersMoved({{1, {60, 60}}});
    ASSERT_EQ(records().size(), 1u);
    EXPECT_EQ(records()[0].back(), c.landscape);  // from the whole points: a square in the last case
  }
}

TEST_F(Overlay, TicksPlaceOneLabelPerItemAndTheLabelPoolChangesAtItsEndOnly) {
  const auto overlay = attachFixedText({844, 390});
  overlay->showWatermark();
  EXPECT_TRUE(overlay->textViews().empty());
  ticks(1);
  // The first update saw no text yet, so nothing moved.
  EXPECT_EQ(labelXs(*overlay), (std::vector<float>{0.0f, 320.0f, 640.0f}));
  ticks(1);
  EXPECT_EQ(labelXs(*overlay), (std::vector<float>{-4.666667f, 315.33334f, 635.33337f}));
  const auto first = overlay->textViews().front();
  // Copies a row: 300 wide gives 3, 500 gives 2, 200 gives 4; the bouncing behaviour shows 1.
  for (const auto& [width, copies] : {std::pair{500.0, 2u}, {300.0, 3u}, {500.0, 2u}, {200.0, 4u}}) {
    overlay->textSize.width = width;
    ticks(1);
    EXPECT_EQ(overlay->textViews().size(), copies);
    EXPECT_EQ(overlay->subviews().size(), copies);
  }
  const auto last = overlay->textViews().back();
  overlay->watermark().setBehaviourType(WatermarkBehaviourTypeDVD);
  ticks(1);
  EXPECT_EQ(std::tuple(overlay->textViews(), last->superview()), std::tuple(std::vector{first}, nullptr));
  EXPECT_EQ(overlay->measured, 7) << "one timer, one measurement a tick, though the watermark was switched on twice";
}

TEST_F(Overlay, EveryLabelShowsTimestampDashUserIdInTheMeasuredWidth) {
  const auto overlay = attach();
  overlay->showWatermark();
  sim().advance(0.1);
  const std::string text = *overlay->textViews().front()->text();
  EXPECT_TRUE(std::regex_match(text, std::regex(R"(\d{4}:\d\d:\d\dT\d\d:\d\d:\d\d(Z|[+-]\d\d:\d\d)-no-user-id)"))) << text;
  // Measured for real: the frame is the text's size with its fraction, not whole points.
  const CGSize measured = sizeWithAttributes(text, {overlay->font(), UIColor::whiteColor()});
  EXPECT_EQ(overlay->textViews().front()->frame().size,
            CGSizeMake(static_cast<float>(measured.width), static_cast<float>(measured.height)));
  sdk().setAuthToken(std::string(24, 't') + "USERID-0123456789abcdefg");
  sim().advance(1.0 / 15);
  for (const auto& label : overlay->textViews()) EXPECT_TRUE(label->text()->ends_with("-USERID-0123456789abcdefg"));
}

TEST_F(Overlay, TouchesReachTheGameAndMarkedOnesTakeMarksInTurnAndRecord) {
  auto counting = std::make_shared<TouchCountingGame>();
  window()->setRootViewController(counting);
  record();
  sdk().initialiseOverlay(counting, std::nullopt);
  const auto overlay = sdk().overlayView();
  host().fingersDown({{1, {10, 10}}});
  host().fingersMoved({{1, {20, 20}}});
  host().fingersCancelled({{1, {20, 20}}});
  EXPECT_TRUE(records().empty()) << "no marks yet: nothing recorded";
  sdk().showTouches();
  host().fingersDown({{1, {10, 10}}});
  const auto taken = overlay->subviews().back();
  EXPECT_EQ(taken->center(), CGPointMake(10, 10));
  host().fingersMoved({{1, {100.5, 200.25}}});
  host().fingersMoved({{1, {0, 844}}});
  EXPECT_EQ(taken->center(), CGPointMake(0, 844));
  host().fingersUp({{1, {0, 844}}});
  EXPECT_EQ(taken->superview(), nullptr);
  EXPECT_EQ(overlay->freeTouchMarks().back(), taken);
  host().fingersDown({{2, {5, 5}}});
  host().fingersUp({{2, {5, 5}}});
  EXPECT_EQ(records(), (std::vector<std::vector<std::int32_t>>{
                           {0, 6, 0, 16887, 15549, 0}, {0, 6, 0, 0, 65535, 0}, {0, 7, 0}, {0, 7, 1}}));
  EXPECT_EQ(overlay->freeTouchMarks().front()->index(), 2);
  EXPECT_EQ(counting->seen, 9u) << "every touch handed on, with marks or without";
}

TEST_F(Overlay, AnEleventhFingerGoesUnmarkedAndEveryEndingReturnsItsMark) {
  game()->view()->setBackgroundColor(UIColor::blackColor());
  record();
  const auto overlay = attach();
  sdk().showTouches();
  std::vector<Finger> fingers;
  for (int id = 1; id <= 11; ++id) fingers.push_back({id, {id * 30.0, 100}});
  host().fingersDown(fingers);
  EXPECT_TRUE(overlay->freeTouchMarks().empty());
  // A mark is a white disc, two thirds opaque: the third finger's, around (90, 100).
  const UIFrame& frame = host().renderFrame();
  const auto grey = [&frame](double x, double y) { return testing::pixelAt(frame, {x, y})[2]; };
  EXPECT_NEAR(grey(90, 100), 170, 2);
  EXPECT_NEAR(grey(90, 89), 170, 2);  // inside the radius
  EXPECT_EQ(grey(79, 89), 0);         // the square's corner is cut off
  EXPECT_EQ(grey(90, 115), 0);
  host().fingersMoved({{11, {100.5, 100}}});
  host().fingersUp({{11, {100.5, 100}}});
  host().fingersUp({fingers[0], fingers[1]});  // one call, two fingers
  newRun();
  _eventsSinceLastUpdate = 5;  // this run is used up: the ending is dropped, the mark comes back
  _lastUpdated = sim().currentMilliseconds();
  host().fingersUp({fingers[2]});
  host().fingersCancelled({fingers[3]});  // the platform takes a touch away
  EXPECT_EQ(overlay->freeTouchMarks().size(), 4u);
  EXPECT_EQ(overlay->touchMarksInUse(), 6u);
  EXPECT_EQ(overlay->subviews().size(), 6u);
  newRun();
  host().fingersCancelled({fingers[4]});
  auto got = records();
  ASSERT_EQ(got.size(), 5u);
  std::sort(got.begin() + 2, got.begin() + 4);  // a set of touches has no order
  EXPECT_EQ(got, (std::vector<std::vector<std::int32_t>>{
                     {0, 6, -1, 16887, 7764, 0}, {0, 7, -1}, {0, 7, 0}, {0, 7, 1}, {0, 7, 4}}));
}

}  // namespace
}  // namespace tavrel
