// The recording's plot, drawn in process and read back by its pixels where its layout says.

#include "event_plot.hpp"

#include <tavrel_sdk/ui/image.hpp>

#include "recording/sample_events.hpp"
#include "support/tool_runner.hpp"

#include <cmath>
#include <memory>

namespace tavrel::testing {
namespace {

using cli::EventPlot;

std::string moved(std::int32_t t, std::int32_t mark, std::int32_t x, std::int32_t y) {
  return words({t, 7, 0, 6, mark, x, y, 1});
}
std::string ended(std::int32_t t, std::int32_t mark) { return words({t, 4, 0, 7, mark}); }

bool near(const CGColorRef& a, const CGColorRef& b, double tolerance = 0.08) {
  return std::abs(a.red - b.red) < tolerance && std::abs(a.green - b.green) < tolerance &&
         std::abs(a.blue - b.blue) < tolerance;
}

TEST(EventPlot, TellsFingersTracksAndDroppedRunsApartOnALandscapeScreen) {
  const std::string input = kMagic +
                            // Finger 0, lifted; then a new finger on the same mark.
                            moved(100, 0, 10000, 20000) + moved(150, 0, 20000, 20000) + moved(200, 0, 30000, 20000) +
                            ended(250, 0) + moved(3000, 0, 10000, 50000) + moved(3050, 0, 30000, 50000) +
                            ended(3100, 0) +
                            // Finger 1 with a run dropped between its records.
                            moved(400, 1, 50000, 10000) + moved(2000, 1, 50000, 40000) + ended(2100, 1) +
                            // An eleventh finger: no mark.
                            moved(500, -1, 60000, 60000) + ended(600, -1);
  const std::string game = kHeader + "{\"a\": \"1\", \"e\": \"level\", \"t\": 0}\n";
  const EventPlot plot = cli::makeEventPlot({{"i.evt", readEventFile(input)}, {"g.evt", readEventFile(game)}}, {390, 844});
  const CGRect bounds = CGRectMake(0, 0, 1000, 720);
  const cli::EventPlotLayout layout = cli::layoutEventPlot(plot, bounds);
  const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1000, 720), cairo_surface_destroy);
  cairo_t* cr = cairo_create(surface.get());
  cli::drawEventPlot(cr, bounds, plot);
  cairo_destroy(cr);
  cairo_surface_flush(surface.get());
  const auto between = [&](CGPoint a, CGPoint b, double share) -> CGColorRef {
    const unsigned char* row = cairo_image_surface_get_data(surface.get()) +
                               static_cast<int>(a.y + (b.y - a.y) * share) * cairo_image_surface_get_stride(surface.get());
    const auto pixel = reinterpret_cast<const std::uint32_t*>(row)[static_cast<int>(a.x + (b.x - a.x) * share)];
    return {((pixel >> 16) & 255) / 255.0, ((pixel >> 8) & 255) / 255.0, (pixel & 255) / 255.0, 1};
  };
  ASSERT_TRUE(layout.landscape);
  EXPECT_GT(layout.screen.size.width, layout.screen.size.height * 2);

  const CGColorRef blue = cli::fingerColor(0), orange = cli::fingerColor(1), grey = cli::fingerColor(-1);
  ASSERT_FALSE(near(blue, orange));
  const auto point = [&](std::int32_t x, std::int32_t y) { return layout.touchPoint(x, y); };
  const CGColorRef ground = between(point(40000, 30000), point(40000, 30000), 0);

  // A solid track between records 50 ms apart, in the finger's colour.
  EXPECT_TRUE(near(between(point(10000, 20000), point(20000, 20000), 0.5), blue));
  // The reused mark starts a new track: nothing joins the first one's end to its start.
  EXPECT_TRUE(near(between(point(10000, 50000), point(30000, 50000), 0.5), blue));
  EXPECT_TRUE(near(between(point(30000, 20000), point(10000, 50000), 0.5), ground));
  // The dropped run is dashed: some of it is the finger's colour, some the screen between.
  int coloured = 0, gaps = 0;
  for (double share = 0.2; share < 0.8; share += 0.01) {
    const CGColorRef c = between(point(50000, 10000), point(50000, 40000), share);
    coloured += !near(c, ground, 0.05) && c.red > c.blue;
    gaps += near(c, ground, 0.05);
  }
  EXPECT_GT(coloured, 10);
  EXPECT_GT(gaps, 10);
  EXPECT_TRUE(near(between(point(50000, 10000), point(50000, 10000), 0), orange));
  // The finger without a mark is a grey dot, joined to nothing.
  EXPECT_TRUE(near(between(point(60000, 60000), point(60000, 60000), 0), grey));
  EXPECT_TRUE(near(between(point(50000, 40000), point(60000, 60000), 0.5), ground));
  // In its lane on the time line, a touch ended's tick reaches a pixel past the lane at each end
  // and a touch moved's stays a pixel inside.
  const auto tickLength = [&](std::int32_t ms) {
    const double x = std::round(layout.timeX(ms));
    int length = 0;
    for (double y = layout.timeline.minY(); y < layout.timeline.maxY(); ++y) {
      length += near(between({x, y}, {x, y}, 0), grey, 0.02);
    }
    return length;
  };
  EXPECT_EQ(std::pair(tickLength(500), tickLength(600)), std::pair(7, 11));
  // The time line runs from the game event at 0 to the last record.
  EXPECT_EQ(layout.firstMs, 0);
  EXPECT_EQ(layout.lastMs, 3100);
}

using EventPlotTool = ToolTest;

TEST_F(EventPlotTool, DrawsWhatItCanReadAndNamesWhatItCannot) {
  const std::string png = directory_.path() + "/plot.png";
  const ToolRun run = runTool({"plot", write("i.evt", kMagic + kMoved + kEnded), directory_.path() + "/missing.evt",
                               "-o", png, "--size", "640x480"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("missing.evt: cannot read"), std::string::npos) << run.err;
  const auto picture = UIImage::imageWithData(readFile(png));
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(std::pair(picture->pixelWidth(), picture->pixelHeight()), std::pair(640, 480));
  // From 1 to 10000 points a side.
  for (const auto& [size, status] : {std::pair{"1x10000", 0}, {"0.9x480", 2}, {"640x10001", 2}, {"640x480y", 2}}) {
    EXPECT_EQ(runTool({"plot", directory_.path() + "/i.evt", "-o", png, "--size", size}).status, status) << size;
  }
}

}  // namespace
}  // namespace tavrel::testing
