#include "watermark/watermark.hpp"
#include "watermark_fixture.hpp"

namespace tavrel {
namespace {

using testing::WatermarkTest;

constexpr float kTick = 1.0f / 15.0f;

// Ticks on which a change period ended, seen as the counter falling back.
std::vector<int> periodEnds(Watermark& watermark, int ticks, float delta = kTick) {
  std::vector<int> ends;
  for (int tick = 1; tick <= ticks; ++tick) {
    const float before = watermark.changePositionCounter();
    watermark.updateWithDelta(delta);
    if (watermark.changePositionCounter() < before + delta * 0.5f) ends.push_back(tick);
  }
  return ends;
}

TEST_F(WatermarkTest, ControllerStartsWithSpeedSeventyAndPeriodSixty) {
  Watermark watermark;
  EXPECT_FALSE(watermark.getRenderList().has_value());
  EXPECT_FALSE(watermark.isBehaviourSet());
  // Float accumulation of the tick: the first period ends on tick 901, the next ones 900 apart.
  EXPECT_EQ(periodEnds(watermark, 2701), (std::vector<int>{901, 1801, 2701}));
}

TEST_F(WatermarkTest, ChangePeriodEndsOncePerCallAndAtExactlyThePeriod) {
  Watermark watermark;
  watermark.setChangePositionTimer(1.0f);
  watermark.updateWithDelta(0.5f);
  watermark.updateWithDelta(0.5f);
  EXPECT_EQ(watermark.changePositionCounter(), 0.0f);
  watermark.updateWithDelta(2.5f);
  EXPECT_EQ(watermark.changePositionCounter(), 1.5f);
  watermark.updateWithDelta(0.0f);
  EXPECT_EQ(watermark.changePositionCounter(), 0.5f);
}

TEST_F(WatermarkTest, OverlayTicksMoveTheTickerByTheFloatStep) {
  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(844.0f, 390.0f);
  watermark.setBehaviourType(WatermarkBehaviourTypeTicker);
  std::vector<std::vector<float>> ticks;
  for (int tick = 0; tick < 2; ++tick) {
    watermark.updateWithDelta(kTick);  // sees the text of the tick before: none at first
    watermark.setTextDimensionsWithWidth(300.0f, 12.0f);
    const auto items = watermark.getRenderList();
    std::vector<float> xs;
    for (const RenderItem& item : *items) xs.push_back(item.x());
    ticks.push_back(xs);
  }
  EXPECT_EQ(ticks[0], (std::vector<float>{0.0f, 320.0f, 640.0f}));
  EXPECT_EQ(ticks[1], (std::vector<float>{-4.666667f, 315.33334f, 635.33337f}));
}

TEST_F(WatermarkTest, PeriodOfZeroResetsTheTickerOnEveryTick) {
  script({1, 2, 3});
  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(844.0f, 390.0f);
  watermark.setChangePositionTimer(0.0f);
  watermark.setBehaviourType(WatermarkBehaviourTypeTicker);
  watermark.setTextDimensionsWithWidth(300.0f, 12.0f);
  for (float line : {41.0f, 42.0f}) {
    watermark.updateWithDelta(kTick);
    const auto& ticker = dynamic_cast<const WatermarkTicker&>(*watermark.behaviour());
    EXPECT_EQ(ticker.x(), 0.0f);  // moved, then reset
    EXPECT_EQ(ticker.y(), line);
  }
}

TEST_F(WatermarkTest, UnknownTypeKeepsAndResetsThePresentBehaviour) {
  Watermark empty;
  empty.setBehaviourType(7);
  EXPECT_TRUE(empty.isBehaviourSet());
  EXPECT_FALSE(empty.getRenderList().has_value());

  script({5, 6, 7});
  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(844.0f, 390.0f);
  watermark.setBehaviourType(WatermarkBehaviourTypeTicker);
  const WatermarkBehaviour* ticker = watermark.behaviour();
  watermark.setBehaviourType(-1);
  watermark.setBehaviourType(7);
  EXPECT_EQ(watermark.behaviour(), ticker);
  EXPECT_EQ(dynamic_cast<const WatermarkTicker*>(ticker)->y(), 46.0f);
  EXPECT_EQ(watermark.getBehaviourType(), WatermarkBehaviourTypeTicker);
}

TEST_F(WatermarkTest, RandomTypeDrawsABehaviourAndResetsItTwice) {
  script({3 + WatermarkBehaviourTypeTicker, 100, 200});
  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(844.0f, 390.0f);
  watermark.setBehaviourType(WatermarkBehaviourTypeRandom);
  EXPECT_TRUE(watermark.isRandomised());
  EXPECT_EQ(watermark.getBehaviourType(), WatermarkBehaviourTypeTicker);
  EXPECT_EQ(dynamic_cast<const WatermarkTicker&>(*watermark.behaviour()).y(), 239.0f);

  // Random mode stays on: a concrete type later is replaced at the next end of a period.
  script({0, 0, 64, 64, WatermarkBehaviourTypeMultilineTicker});  // the bouncing start, the draw
  watermark.setBehaviourType(WatermarkBehaviourTypeDVD);
  EXPECT_EQ(watermark.getBehaviourType(), WatermarkBehaviourTypeDVD);
  watermark.setChangePositionTimer(0.15f);
  watermark.setTextDimensionsWithWidth(300.0f, 12.0f);
  watermark.updateWithDelta(kTick);
  watermark.updateWithDelta(kTick);
  watermark.updateWithDelta(kTick);  // ends the period: replaced, not moved
  EXPECT_EQ(watermark.getBehaviourType(), WatermarkBehaviourTypeMultilineTicker);
  const auto& lines = dynamic_cast<const WatermarkMultilineTicker&>(*watermark.behaviour());
  for (const Position& line : lines.positions()) EXPECT_EQ(line.x(), 0.0f);
  watermark.updateWithDelta(kTick);
  for (const Position& line : lines.positions()) EXPECT_EQ(line.x(), -4.666667f);
}

}  // namespace
}  // namespace tavrel
