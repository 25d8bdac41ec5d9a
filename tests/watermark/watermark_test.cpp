#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"
#include "watermark/watermark.hpp"
#include "watermark/watermark_arithmetic.hpp"

#include <algorithm>
#include <limits>

namespace tavrel {
namespace {

using WatermarkTest = testing::SimulatedSession;
using watermark_detail::truncateToInt32;

// Saturating as arm64's fcvtzs does, where a plain cast would be undefined.
static_assert(truncateToInt32(-29.97) == -29);
static_assert(truncateToInt32(2147483647.9) == std::numeric_limits<std::int32_t>::max());
static_assert(truncateToInt32(-1e10) == std::numeric_limits<std::int32_t>::min());
static_assert(truncateToInt32(std::numeric_limits<double>::quiet_NaN()) == 0);

std::vector<RenderItem> row(std::initializer_list<float> xs, float y = 0.0f) {
  std::vector<RenderItem> items;
  for (float x : xs) items.emplace_back(x, y);
  return items;
}

TEST(WatermarkBehaviourBase, SpacerIsThirtyPointsPer1080Truncated) {
  const std::pair<float, std::int32_t> spacers[] = {{2160.0f, 60}, {1080.0f, 30}, {1079.0f, 29},
                                                    {720.0f, 20},  {390.0f, 10},  {375.0f, 10},
                                                    {36.0f, 1},    {35.0f, 0},    {0.0f, 0}};
  for (const auto& [height, spacer] : spacers) EXPECT_EQ(WatermarkBehaviour().getSpacerWidth(height), spacer) << height;
}

// The line each reset draws anew: margin + draw mod band, for the band edges and the degenerate moduli.
TEST_F(WatermarkTest, TickerLineIsMarginPlusDrawModuloBand) {
  struct Case {
    float height, textHeight;
    std::uint32_t draw;
    float y;
  } const cases[] = {
      {1080.0f, 0.0f, 0, 108.0f},   {1080.0f, 0.0f, 863, 971.0f},         // modulus 864
      {1080.0f, 0.0f, 864, 108.0f}, {1080.0f, 36.0f, 828, 108.0f},        // modulus 828
      {390.0f, 12.5f, 298, 337.0f}, {390.0f, 12.5f, 299, 39.0f},          // 299.5 truncated
      {0.0f, 0.0f, 123456789, 123456792.0f},                              // modulus 0: the draw
      {100.0f, 90.0f, 5, 15.0f},    {100.0f, 90.0f, 4294967290u, 14.0f},  // modulus -10
      {-100.0f, 0.0f, 3, 4294967296.0f},  // margin -10 plus 3 wraps to 2^32 - 7
  };
  WatermarkTicker ticker;
  for (const Case& c : cases) {
    sim().scriptRandom({c.draw});
    ticker.resetWithWidth(844.0f, c.height, 300.0f, c.textHeight);
    EXPECT_EQ(ticker.y(), c.y) << c.height << " " << c.textHeight << " " << c.draw;
  }
}

TEST(WatermarkTicker, RowFillsTheWidthAndWrapsStrictlyPastOneTextWidth) {
  WatermarkTicker ticker;
  const auto list = [&ticker](float textWidth, float width = 844.0f) {
    return ticker.getRenderListWithWidth(width, 390.0f, textWidth, 12.0f);
  };
  EXPECT_EQ(list(300.0f), row({0.0f, 320.0f, 640.0f}));
  // A copy beyond the right edge, or a start at it, still makes two.
  EXPECT_EQ(list(1000.0f), row({0.0f, 1020.0f}));
  EXPECT_EQ(list(300.0f, 0.0f), row({0.0f, 320.0f}));
  ticker.updateWithSpeed(300.0f, 844.0f, 390.0f, 300.0f, 12.0f);
  EXPECT_EQ(list(300.0f), row({-300.0f, 20.0f, 340.0f, 660.0f}));
  ticker.updateWithSpeed(0.5f, 844.0f, 390.0f, 300.0f, 12.0f);
  EXPECT_EQ(ticker.x(), 0.0f);
  ticker.updateWithSpeed(0.001f, 844.0f, 390.0f, 0.0f, 12.0f);  // no text yet: below -0.0
  EXPECT_EQ(ticker.x(), 0.0f);
}

TEST(WatermarkMultiline, TenLinesLaidOutByTheFirstResetOnlyMoveInStep) {
  // height, top, second line, last line (accumulated, so 387.00003 rather than 387)
  const std::tuple<float, float, float, float> table[] = {{1080.0f, 108.0f, 204.0f, 972.0f},
                                                          {390.0f, 39.0f, 39.0f + 34.666668f, 351.0f},
                                                          {430.0f, 43.0f, 81.22222f, 387.00003f}};
  for (const auto& [height, top, second, last] : table) {
    WatermarkMultilineTicker ticker;
    ticker.resetWithWidth(844.0f, height, 0.0f, 0.0f);
    ASSERT_EQ(ticker.positions().size(), 10u);
    EXPECT_EQ(ticker.positions()[0], Position(0.0f, top));
    EXPECT_EQ(ticker.positions()[1].y(), second);
    EXPECT_EQ(ticker.positions()[9].y(), last);
  }

  WatermarkMultilineTicker ticker;
  EXPECT_TRUE(ticker.getRenderListWithWidth(844.0f, 390.0f, 300.0f, 12.0f).empty());
  ticker.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
  const auto layout = ticker.positions();
  ticker.resetWithWidth(844.0f, 1080.0f, 0.0f, 0.0f);
  EXPECT_EQ(ticker.positions(), layout);

  std::vector<RenderItem> rows;
  for (const Position& line : layout)
    for (float x : {0.0f, 320.0f, 640.0f}) rows.emplace_back(x, line.y());
  EXPECT_EQ(ticker.getRenderListWithWidth(844.0f, 390.0f, 300.0f, 12.0f), rows);
  EXPECT_EQ(ticker.getRenderListWithWidth(844.0f, 390.0f, 1000.0f, 12.0f).size(), 20u);
  ticker.updateWithSpeed(300.0f, 844.0f, 390.0f, 300.0f, 12.0f);
  for (const Position& line : ticker.positions()) EXPECT_EQ(line.x(), -300.0f);
  ticker.updateWithSpeed(0.5f, 844.0f, 390.0f, 300.0f, 12.0f);
  for (const Position& line : ticker.positions()) EXPECT_EQ(line.x(), 0.0f);
}

TEST_F(WatermarkTest, BouncingStartDrawsXYAndTwoVelocitiesOnlyOnce) {
  sim().scriptRandom({1000, 5, 128, 0, 77});
  WatermarkDVD dvd;
  dvd.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
  dvd.resetWithWidth(100.0f, 100.0f, 0.0f, 0.0f);
  EXPECT_EQ(sim().arc4random(), 77u);  // the second reset drew nothing
  EXPECT_EQ(dvd.getRenderListWithWidth(0, 0, 0, 0), row({156.0f}, 44.0f));
  EXPECT_EQ(std::make_pair(dvd.dx(), dvd.dy()), std::make_pair(0.5f, -0.5f));

  sim().scriptRandom({0xFFFFFFFFu, 0, 64, 64});  // width below 1: modulus 0, the draw read as signed
  WatermarkDVD narrow;
  narrow.resetWithWidth(0.5f, 390.0f, 0.0f, 0.0f);
  EXPECT_EQ(narrow.x(), -1.0f);

  const std::pair<std::uint32_t, float> velocities[] = {{0, -0.5f},  {1, -0.4921875f},  {64, 0.0f},
                                                        {128, 0.5f}, {255, 1.4921875f}, {511, 1.4921875f}};
  for (const auto& [draw, velocity] : velocities) {  // off-centre multiples of 1/128
    sim().scriptRandom({0, 0, draw, draw});
    WatermarkDVD drawn;
    drawn.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
    EXPECT_EQ(std::make_pair(drawn.dx(), drawn.dy()), std::make_pair(velocity, velocity)) << draw;
  }
}

// Each case starts one step short of an edge: it reaches the edge without turning, then turns. The
// other axis rests (draw 64); the text is 39.5 high: the bottom case turns only if the half counts.
TEST_F(WatermarkTest, BouncingTurnsStrictlyPastAnEdge) {
  struct Case {
    const char* what;
    std::uint32_t x, line, dxDraw, dyDraw;
    float textWidth, speed;
  } const cases[] = {
      {"left edge", 2, 0, 0, 64, 300.0f, 4.0f},
      {"right edge", 543, 0, 128, 64, 300.0f, 2.0f},
      {"fraction of the width ignored", 543, 0, 128, 64, 300.7f, 2.0f},
      {"wide text counts by half", 343, 0, 128, 64, 1000.0f, 2.0f},
      {"top edge, from the margin 39", 0, 0, 64, 0, 300.0f, 78.0f},
      {"bottom edge counts the height in full", 0, 311, 64, 128, 300.0f, 1.0f},
  };
  for (const Case& c : cases) {
    sim().scriptRandom({c.x, c.line, c.dxDraw, c.dyDraw});
    WatermarkDVD dvd;
    dvd.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
    const auto start = std::make_pair(dvd.dx(), dvd.dy());
    dvd.updateWithSpeed(c.speed, 844.0f, 390.0f, c.textWidth, 39.5f);
    EXPECT_EQ(std::make_pair(dvd.dx(), dvd.dy()), start) << c.what;
    dvd.updateWithSpeed(c.speed, 844.0f, 390.0f, c.textWidth, 39.5f);
    EXPECT_EQ(std::make_pair(dvd.dx(), dvd.dy()), std::make_pair(-start.first, -start.second)) << c.what;
  }
  // Text exactly as wide as the canvas is not halved: at x 421 it is past the right edge.
  sim().scriptRandom({420, 0, 128, 64});
  WatermarkDVD full;
  full.resetWithWidth(844.0f, 390.0f, 0.0f, 0.0f);
  full.updateWithSpeed(2.0f, 844.0f, 390.0f, 844.0f, 39.5f);
  EXPECT_EQ(full.dx(), -0.5f);
}

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
