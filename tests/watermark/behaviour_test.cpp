#include "watermark/watermark.hpp"
#include "watermark/watermark_arithmetic.hpp"
#include "watermark_fixture.hpp"

#include <limits>

namespace tavrel {
namespace {

using testing::WatermarkTest;

std::vector<float> xs(const std::vector<RenderItem>& items) {
  std::vector<float> out;
  for (const RenderItem& item : items) out.push_back(item.x());
  return out;
}

TEST(WatermarkArithmetic, SpacerScalesWithHeightAndTruncates) {
  const WatermarkBehaviour base;
  const std::pair<float, std::int32_t> table[] = {{2160.0f, 60}, {1080.0f, 30}, {1079.0f, 29},
                                                  {720.0f, 20},  {390.0f, 10},  {375.0f, 10},
                                                  {36.0f, 1},    {35.0f, 0},    {0.0f, 0}};
  for (const auto& [height, spacer] : table) EXPECT_EQ(base.getSpacerWidth(height), spacer) << height;
}

TEST(WatermarkArithmetic, TruncationSaturatesLikeArm64) {
  using watermark_detail::truncateToInt32;
  EXPECT_EQ(truncateToInt32(-29.97), -29);
  EXPECT_EQ(truncateToInt32(2147483647.9), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(truncateToInt32(-2147483648.9), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(truncateToInt32(-1e10), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(truncateToInt32(std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST(WatermarkBehaviourBase, AbstractOperationsThrowOneError) {
  WatermarkBehaviour base;
  try {
    base.getBehaviourType();
    ADD_FAILURE() << "no exception";
  } catch (const NotImplementedError& error) {
    EXPECT_STREQ(error.name(), "Not implemented");
    EXPECT_STREQ(error.what(), "base class method called");
  }
  EXPECT_THROW(base.updateWithSpeed(1, 2, 3, 4, 5), NotImplementedError);
  EXPECT_THROW(base.resetWithWidth(1, 2, 3, 4), NotImplementedError);
  EXPECT_THROW(base.getRenderListWithWidth(1, 2, 3, 4), NotImplementedError);
  EXPECT_EQ(WatermarkTicker().getBehaviourType(), 0);
  EXPECT_EQ(WatermarkDVD().getBehaviourType(), 1);
  EXPECT_EQ(WatermarkMultilineTicker().getBehaviourType(), 2);
}

// The line a reset draws: margin + draw mod band, for the band edges and the degenerate moduli.
TEST_F(WatermarkTest, TickerLineIsMarginPlusDrawModuloBand) {
  struct Case {
    float height, textHeight;
    std::uint32_t draw;
    float y;
  } const cases[] = {
      {1080.0f, 0.0f, 0, 108.0f},       {1080.0f, 0.0f, 863, 971.0f},  // modulus 864
      {1080.0f, 0.0f, 864, 108.0f},     {1080.0f, 36.0f, 828, 108.0f},  // modulus 828
      {390.0f, 12.5f, 298, 337.0f},     {390.0f, 12.5f, 299, 39.0f},    // 299.5 truncated
      {0.0f, 0.0f, 123456789, 123456792.0f},                            // modulus 0: the draw
      {100.0f, 90.0f, 5, 15.0f},        {100.0f, 90.0f, 4294967290u, 14.0f},  // modulus -10
      {-100.0f, 0.0f, 3, 4294967296.0f},  // margin -10 plus 3 wraps to 2^32 - 7
  };
  for (const Case& c : cases) {
    script({c.draw});
    WatermarkTicker ticker;
    ticker.resetWithWidth(844.0f, c.height, 300.0f, c.textHeight);
    EXPECT_EQ(ticker.y(), c.y) << c.height << " " << c.textHeight << " " << c.draw;
  }
}

TEST_F(WatermarkTest, TickerWrapsStrictlyPastOneTextWidth) {
  WatermarkTicker ticker;
  ticker.updateWithSpeed(300.0f, 844.0f, 390.0f, 300.0f, 12.0f);
  EXPECT_EQ(ticker.x(), -300.0f);
  ticker.updateWithSpeed(0.5f, 844.0f, 390.0f, 300.0f, 12.0f);
  EXPECT_EQ(ticker.x(), 0.0f);
  ticker.updateWithSpeed(0.001f, 844.0f, 390.0f, 0.0f, 12.0f);  // no text yet: below -0.0
  EXPECT_EQ(ticker.x(), 0.0f);
}

TEST_F(WatermarkTest, TickerRowFillsTheWidthWithAtLeastTwoCopies) {
  struct Case {
    float shift, width, textWidth;
    std::vector<float> xs;
  } const cases[] = {
      {0.0f, 844.0f, 300.0f, {0.0f, 320.0f, 640.0f}},
      {300.0f, 844.0f, 300.0f, {-300.0f, 20.0f, 340.0f, 660.0f}},
      {0.0f, 844.0f, 1000.0f, {0.0f, 1020.0f}},
      {0.0f, 0.0f, 300.0f, {0.0f, 320.0f}},  // starts at the right edge
  };
  for (const Case& c : cases) {
    WatermarkTicker ticker;
    ticker.updateWithSpeed(c.shift, c.width, 390.0f, c.textWidth, 12.0f);
    const auto items = ticker.getRenderListWithWidth(c.width, 390.0f, c.textWidth, 12.0f);
    EXPECT_EQ(xs(items), c.xs) << c.shift << " " << c.width << " " << c.textWidth;
    for (const RenderItem& item : items) EXPECT_EQ(item.orientation(), RenderOrientationHorizontal);
  }
}

TEST(WatermarkMultiline, TenLinesAccumulatedOverTheMiddleOfTheHeight) {
  WatermarkMultilineTicker tall;
  tall.resetWithWidth(844.0f, 1080.0f, 0.0f, 0.0f);
  ASSERT_EQ(tall.positions().size(), 10u);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(tall.positions()[i], Position(0.0f, 108.0f + 96.0f * i));

  const std::tuple<float, float, float, float> table[] = {
      // height, top, second line, last line (accumulated, so 387.00003 rather than 387)
      {390.0f, 39.0f, 39.0f + 34.666668f, 351.0f},
      {430.0f, 43.0f, 81.22222f, 387.00003f}};
  for (const auto& [height, top, second, last] : table) {
    WatermarkMultilineTicker ticker;
    ticker.resetWithWidth(844.0f, height, 0.0f, 0.0f);
    ASSERT_EQ(ticker.positions().size(), 10u);
    EXPECT_EQ(ticker.positions().front().y(), top);
    EXPECT_EQ(ticker.positions()[1].y(), second);
    EXPECT_EQ(ticker.positions().back().y(), last);
  }
}

TEST(WatermarkMultiline, LinesMoveInStepAndOnlyTheFirstResetActs) {
  WatermarkMultilineTicker ticker;
  EXPECT_TRUE(ticker.getRenderListWithWidth(844.0f, 390.0f, 300.0f, 12.0f).empty());
  ticker.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
  const auto layout = ticker.positions();
  ticker.resetWithWidth(844.0f, 1080.0f, 0.0f, 0.0f);
  EXPECT_EQ(ticker.positions(), layout);

  const auto items = ticker.getRenderListWithWidth(844.0f, 390.0f, 300.0f, 12.0f);
  ASSERT_EQ(items.size(), 30u);
  for (std::size_t i = 0; i < items.size(); ++i) {
    EXPECT_EQ(items[i], RenderItem(320.0f * static_cast<float>(i % 3), layout[i / 3].y()));
  }
  EXPECT_EQ(ticker.getRenderListWithWidth(844.0f, 390.0f, 1000.0f, 12.0f).size(), 20u);

  ticker.updateWithSpeed(300.0f, 844.0f, 390.0f, 300.0f, 12.0f);
  for (const Position& line : ticker.positions()) EXPECT_EQ(line.x(), -300.0f);
  ticker.updateWithSpeed(0.5f, 844.0f, 390.0f, 300.0f, 12.0f);
  for (const Position& line : ticker.positions()) EXPECT_EQ(line.x(), 0.0f);
}

TEST_F(WatermarkTest, BouncingVelocityIsAnOffCentreMultipleOfOneOver128) {
  const std::pair<std::uint32_t, float> table[] = {
      {0, -0.5f}, {1, -0.4921875f}, {64, 0.0f}, {128, 0.5f}, {255, 1.4921875f}, {511, 1.4921875f}};
  for (const auto& [draw, velocity] : table) {
    script({0, 0, draw, draw});
    WatermarkDVD dvd;
    dvd.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
    EXPECT_EQ(dvd.dx(), velocity) << draw;
    EXPECT_EQ(dvd.dy(), velocity) << draw;
  }
}

TEST_F(WatermarkTest, BouncingStartDrawsInOrderAndOnlyOnce) {
  script({1000, 5, 128, 0, 77});
  WatermarkDVD dvd;
  dvd.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
  EXPECT_EQ(dvd.x(), 156.0f);
  EXPECT_EQ(dvd.y(), 44.0f);
  EXPECT_EQ(dvd.dx(), 0.5f);
  EXPECT_EQ(dvd.dy(), -0.5f);
  dvd.resetWithWidth(100.0f, 100.0f, 0.0f, 0.0f);
  EXPECT_EQ(dvd.x(), 156.0f);
  EXPECT_EQ(sim_->arc4random(), 77u);  // the second reset drew nothing
  EXPECT_EQ(dvd.getRenderListWithWidth(0, 0, 0, 0), std::vector<RenderItem>{RenderItem(156, 44)});

  script({0xFFFFFFFFu, 0, 64, 64});  // width below 1: modulus 0, the draw read as signed
  WatermarkDVD narrow;
  narrow.resetWithWidth(0.5f, 390.0f, 0.0f, 0.0f);
  EXPECT_EQ(narrow.x(), -1.0f);
}

// Each case starts the text one step short of an edge: it reaches the edge exactly without
// turning (strict in position), then turns on the next update.
TEST_F(WatermarkTest, BouncingTurnsStrictlyPastAnEdge) {
  struct Case {
    const char* what;
    std::uint32_t x, line, dxDraw, dyDraw;
    float textWidth, textHeight, speed;
    bool horizontal;
  } const cases[] = {
      {"left edge", 2, 0, 0, 64, 300.0f, 12.0f, 4.0f, true},
      {"right edge", 543, 0, 128, 64, 300.0f, 12.0f, 2.0f, true},
      {"fraction of the width ignored", 543, 0, 128, 64, 300.7f, 12.0f, 2.0f, true},
      {"wide text counts by half", 343, 0, 128, 64, 1000.0f, 12.0f, 2.0f, true},
      {"top edge", 0, 0, 64, 0, 300.0f, 12.0f, 78.0f, false},  // from the margin, 39
      {"bottom edge counts the height in full", 0, 311, 64, 128, 300.0f, 12.5f, 55.0f, false},
  };
  for (const Case& c : cases) {
    script({c.x, c.line, c.dxDraw, c.dyDraw});
    WatermarkDVD dvd;
    dvd.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
    const auto velocity = [&] { return c.horizontal ? dvd.dx() : dvd.dy(); };
    const float before = velocity();
    dvd.updateWithSpeed(c.speed, 844.0f, 390.0f, c.textWidth, c.textHeight);
    EXPECT_EQ(velocity(), before) << c.what;
    dvd.updateWithSpeed(c.speed, 844.0f, 390.0f, c.textWidth, c.textHeight);
    EXPECT_EQ(velocity(), -before) << c.what;
  }
}

}  // namespace
}  // namespace tavrel
