#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"
#include "watermark/watermark.hpp"

#include <algorithm>

namespace tavrel {
namespace {

using WatermarkTest = testing::SimulatedSession;

constexpr float kTick = 1.0f / 15.0f;

TEST_F(WatermarkTest, ChangePeriodEndsOncePerCallAtOrPastThePeriod) {
  Watermark watermark;
  EXPECT_FALSE(watermark.getRenderList().has_value());
  EXPECT_FALSE(watermark.isBehaviourSet());
  // Float accumulation of the tick: the first period of 60 s ends on tick 901, the next ones 900 apart.
  std::vector<int> ends;  // seen as the counter falling back
  for (int tick = 1; tick <= 2701; ++tick) {
    const float before = watermark.changePositionCounter();
    watermark.updateWithDelta(kTick);
    if (watermark.changePositionCounter() < before) ends.push_back(tick);
  }
  EXPECT_EQ(ends, (std::vector<int>{901, 1801, 2701}));

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
  watermark.setChangePositionTimer(60.0f);
  watermark.updateWithDelta(kTick);
  EXPECT_EQ(watermark.getRenderList()->front().x(), -4.666667f) << "a tick within the period resets nothing";
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

// The tool runs the same engine, ticking as the overlay does.
using WatermarkTool = testing::ToolTest;

TEST_F(WatermarkTool, PrintsEveryKthTickAsShortestFloatsAndRepeatsUnderASeed) {
  const testing::ToolRun run = testing::runTool(
      {"watermark", "--behaviour", "2", "--canvas", "844x390", "--text", "300x12", "--ticks", "4", "--every", "2"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 2);
  // 635.3334 reads back as the float 635.33337; three ticks accumulate to -14.000001.
  EXPECT_EQ(run.out.rfind("[[-4.666667,39],[315.33334,39],[635.3334,39],[-4.666667,73.66667],", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("\n[[-14.000001,39],[306,39],[626,39],"), std::string::npos) << run.out;

  const testing::ToolRun seeded = testing::runTool({"watermark", "--behaviour", "3", "--seed", "42", "--ticks", "3"});
  EXPECT_EQ(std::count(seeded.out.begin(), seeded.out.end(), '\n'), 3);
  EXPECT_EQ(testing::runTool({"watermark", "--behaviour", "3", "--seed", "42", "--ticks", "3"}).out, seeded.out);
}

TEST_F(WatermarkTool, RejectsBadInputWithStatusTwo) {
  const std::vector<std::string> cases[] = {{"--behaviour", "4"}, {"--behaviour", "-1"},
                                            {"--canvas", "844"},  {"--canvas", "0x390"},
                                            {"--text", "12x"},    {"--ticks", "-1"},
                                            {"--ticks", "many"},  {"--every", "0"},
                                            {"--seed", "-3"},     {"--canvas", "844x30", "--text", "0x12"}};
  for (std::vector<std::string> arguments : cases) {
    arguments.insert(arguments.begin(), "watermark");
    const testing::ToolRun run = testing::runTool(arguments);
    EXPECT_EQ(run.status, 2) << arguments[1] << " " << arguments[2];
    EXPECT_EQ(run.err.rfind("tavrel: ", 0), 0u) << run.err;
  }
}

}  // namespace
}  // namespace tavrel
