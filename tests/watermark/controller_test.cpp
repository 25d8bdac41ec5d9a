#include "support/sandbox.hpp"
#include "watermark/watermark.hpp"

namespace tavrel {
namespace {

using WatermarkTest = testing::SimulatedSession;

constexpr float kTick = 1.0f / 15.0f;

// Ticks on which a change period ended, seen as the counter falling back.
std::vector<int> periodEnds(Watermark& watermark, int ticks) {
  std::vector<int> ends;
  for (int tick = 1; tick <= ticks; ++tick) {
    const float before = watermark.changePositionCounter();
    watermark.updateWithDelta(kTick);
    if (watermark.changePositionCounter() < before) ends.push_back(tick);
  }
  return ends;
}

TEST_F(WatermarkTest, ChangePeriodEndsOncePerCallAtOrPastThePeriod) {
  Watermark watermark;
  EXPECT_FALSE(watermark.getRenderList().has_value());
  EXPECT_FALSE(watermark.isBehaviourSet());
  // Float accumulation of the tick: the first period of 60 s ends on tick 901, the next ones 900 apart.
  EXPECT_EQ(periodEnds(watermark, 2701), (std::vector<int>{901, 1801, 2701}));

  Watermark exact;
  exact.setChangePositionTimer(1.0f);
  // Delta, then the counter: landing on the period ends it; a long delta takes one period off per call.
  const std::pair<float, float> steps[] = {{0.5f, 0.5f}, {0.5f, 0.0f}, {2.5f, 1.5f}, {0.0f, 0.5f}};
  for (const auto& [delta, counter] : steps) {
    exact.updateWithDelta(delta);
    EXPECT_EQ(exact.changePositionCounter(), counter) << delta;
  }
}

TEST_F(WatermarkTest, PeriodOfZeroResetsTheTickerOnEveryTick) {
  sim().scriptRandom({1, 2, 3});
  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(844.0f, 390.0f);
  watermark.setChangePositionTimer(0.0f);
  watermark.setBehaviourType(WatermarkBehaviourTypeTicker);
  watermark.setTextDimensionsWithWidth(300.0f, 12.0f);
  for (float line : {41.0f, 42.0f}) {
    watermark.updateWithDelta(kTick);
    EXPECT_EQ(watermark.getRenderList()->front(), RenderItem(0.0f, line));  // moved, then reset
  }
}

TEST_F(WatermarkTest, UnknownTypesKeepTheBehaviourAndRandomModeStaysOn) {
  Watermark empty;
  empty.setBehaviourType(7);
  EXPECT_TRUE(empty.isBehaviourSet());
  EXPECT_FALSE(empty.getRenderList().has_value());

  sim().scriptRandom({5, 6, 7});
  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(844.0f, 390.0f);
  watermark.setBehaviourType(WatermarkBehaviourTypeTicker);
  const WatermarkBehaviour* ticker = watermark.behaviour();
  watermark.setBehaviourType(-1);
  watermark.setBehaviourType(7);
  EXPECT_EQ(watermark.behaviour(), ticker);
  EXPECT_EQ(watermark.getRenderList()->front().y(), 46.0f);  // reset by each call

  sim().scriptRandom({3 + WatermarkBehaviourTypeTicker, 100, 200});
  watermark.setBehaviourType(WatermarkBehaviourTypeRandom);
  EXPECT_TRUE(watermark.isRandomised());
  EXPECT_EQ(watermark.getBehaviourType(), WatermarkBehaviourTypeTicker);
  EXPECT_EQ(watermark.getRenderList()->front().y(), 239.0f);  // reset twice

  // A concrete type later is replaced at the next end of a period.
  sim().scriptRandom({0, 0, 64, 64, WatermarkBehaviourTypeMultilineTicker});  // the bouncing start, the draw
  watermark.setBehaviourType(WatermarkBehaviourTypeDVD);
  watermark.setChangePositionTimer(0.15f);
  watermark.setTextDimensionsWithWidth(300.0f, 12.0f);
  for (int tick = 0; tick < 3; ++tick) watermark.updateWithDelta(kTick);  // the third ends the period
  EXPECT_EQ(watermark.behaviour()->getBehaviourType(), WatermarkBehaviourTypeMultilineTicker);
  EXPECT_EQ(watermark.getRenderList()->front().x(), 0.0f);  // replaced, not moved
  watermark.updateWithDelta(kTick);
  EXPECT_EQ(watermark.getRenderList()->front().x(), -4.666667f);
}

}  // namespace
}  // namespace tavrel
