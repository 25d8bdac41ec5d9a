#include "event_plot.hpp"

#include "session_script.hpp"

#include <tavrel_sdk/ui/font.hpp>

#include "ui/cairo_support.hpp"
#include "ui/text_layout.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <numbers>
#include <optional>
#include <stdexcept>

namespace tavrel::cli {
namespace {

constexpr double kMargin = 16;
constexpr double kHeader = 52;
constexpr double kLegendWidth = 230;
constexpr double kLaneHeight = 9;
constexpr double kLabelRows = 3;
constexpr double kLabelRowHeight = 16;
constexpr double kAxisHeight = 22;
constexpr std::int32_t kCoordinateSpan = 65535;

const CGColorRef kGround{0.12, 0.13, 0.15, 1};
const CGColorRef kScreenFill{0.17, 0.19, 0.22, 1};
const CGColorRef kOutline{0.45, 0.49, 0.56, 1};
const CGColorRef kText{0.92, 0.93, 0.95, 1};
const CGColorRef kDimText{0.66, 0.69, 0.74, 1};

constexpr CGColorRef kFingerColors[] = {
    {0.31, 0.62, 1.00, 1},  // blue
    {1.00, 0.62, 0.25, 1},  // orange
    {1.00, 0.36, 0.42, 1},  // red
    {0.27, 0.82, 0.77, 1},  // teal
    {0.48, 0.82, 0.35, 1},  // green
    {1.00, 0.85, 0.30, 1},  // yellow
    {0.77, 0.55, 1.00, 1},  // purple
    {1.00, 0.56, 0.82, 1},  // pink
    {0.78, 0.60, 0.43, 1},  // brown
    {0.63, 0.91, 1.00, 1},  // light cyan
};
constexpr CGColorRef kNoMarkColor{0.72, 0.72, 0.72, 1};

bool hasOwnColor(std::int32_t mark) { return mark >= 0 && mark <= 9; }

UIFont font(double size, bool bold = false) {
  return UIFont("DejaVu Sans", size, false, bold ? UIFontWeightBold : UIFontWeightRegular);
}

UIColor uiColor(const CGColorRef& c) { return UIColor(c.red, c.green, c.blue, c.alpha); }

double text(cairo_t* cr, const std::string& line, CGPoint at, double size, const CGColorRef& color,
            bool bold = false, double maxWidth = 0) {
  return drawTextLine(cr, line, at, size, color, bold, maxWidth);
}

double textWidth(const std::string& line, double size, bool bold = false) {
  return text::measure(font(size, bold), line).width;
}

// "0:12.3": a session time of a record, in ms since the recording start.
std::string clock(std::int32_t ms) { return sessionTime(static_cast<double>(ms) / 1000.0); }

// "0:12" on axis ticks, whole seconds.
std::string axisClock(std::int32_t ms) {
  const std::string t = clock(ms);
  return t.substr(0, t.size() - 2);
}

struct TrackPoint {
  CGPoint at;
  std::int32_t ms;
};

struct Track {
  std::int32_t mark = 0;
  std::vector<TrackPoint> points;  // touch moved records
  std::int32_t firstMs = 0;
  std::int32_t lastMs = 0;
  bool lifted = false;  // ends with its touch ended record
};

struct FingerSummary {
  int tracks = 0;
  int records = 0;
};

// A track runs from a mark's first record to its touch ended record; the next record of the
// same mark starts a new finger. Fingers without a mark (-1) share no track: each of their
// records stands alone.
std::vector<Track> tracksOf(const EventPlot& plot, const EventPlotLayout& layout) {
  std::vector<Track> tracks;
  std::map<std::int32_t, std::size_t> open;
  for (const auto& record : plot.inputRecords) {
    const auto kind = record.kind();
    if (kind == InputRecord::Kind::Other) continue;
    const std::int32_t mark = record.payload[2];
    const bool ownTrack = hasOwnColor(mark);
    auto it = ownTrack ? open.find(mark) : open.end();
    if (it == open.end()) {
      tracks.push_back({mark, {}, record.timeOffset, record.timeOffset, false});
      if (ownTrack) it = open.emplace(mark, tracks.size() - 1).first;
    }
    Track& track = ownTrack ? tracks[it->second] : tracks.back();
    track.lastMs = record.timeOffset;
    if (kind == InputRecord::Kind::TouchMoved) {
      track.points.push_back({layout.touchPoint(record.payload[3], record.payload[4]), record.timeOffset});
    } else {
      track.lifted = true;
    }
    if (ownTrack && kind == InputRecord::Kind::TouchEnded) open.erase(it);
  }
  return tracks;
}

void circle(cairo_t* cr, CGPoint at, double radius) {
  cairo_new_sub_path(cr);
  cairo_arc(cr, at.x, at.y, radius, 0, 2 * std::numbers::pi);
}

// Labels that may not overlap: each is placed only where no earlier one is.
class LabelSpace {
 public:
  bool take(CGRect box) {
    for (const CGRect& taken : taken_) {
      if (box.minX() < taken.maxX() && taken.minX() < box.maxX() && box.minY() < taken.maxY() &&
          taken.minY() < box.maxY()) {
        return false;
      }
    }
    taken_.push_back(box);
    return true;
  }

 private:
  std::vector<CGRect> taken_;
};

void drawTrack(cairo_t* cr, const Track& track, LabelSpace& labels) {
  const CGColorRef color = fingerColor(track.mark);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  if (hasOwnColor(track.mark)) {
    for (std::size_t i = 1; i < track.points.size(); ++i) {
      const TrackPoint& a = track.points[i - 1];
      const TrackPoint& b = track.points[i];
      const bool dropped = b.ms - a.ms >= kDroppedGapMs;
      // A dropped run is a thin dashed line: where the finger went is not known, only that it
      // came out there.
      const double dash[] = {4, 5};
      cairo_set_dash(cr, dash, dropped ? 2 : 0, 0);
      cairo_set_line_width(cr, dropped ? 1.2 : 3);
      setSourceColor(cr, color, dropped ? 0.7 : 1);
      cairo_move_to(cr, a.at.x, a.at.y);
      cairo_line_to(cr, b.at.x, b.at.y);
      cairo_stroke(cr);
    }
    cairo_set_dash(cr, nullptr, 0, 0);
  }
  for (std::size_t i = 0; i < track.points.size(); ++i) {
    circle(cr, track.points[i].at, !hasOwnColor(track.mark) ? 3.5 : i == 0 ? 5 : 2.6);
    setSourceColor(cr, color);
    cairo_fill_preserve(cr);
    setSourceColor(cr, kGround, 0.8);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
  }
  if (track.points.empty()) return;
  if (track.lifted) {
    circle(cr, track.points.back().at, 8);
    setSourceColor(cr, color);
    cairo_set_line_width(cr, 2);
    cairo_stroke(cr);
  }
  if (!hasOwnColor(track.mark)) return;
  // The first time, and the last where the track lasts: a few labels, none over another.
  const auto label = [&](const TrackPoint& point, std::int32_t ms) {
    const std::string t = clock(ms);
    const double width = textWidth(t, 11);
    const CGRect box = CGRectMake(point.at.x + 8, point.at.y - 19, width + 2, 13);
    if (labels.take(box)) text(cr, t, box.origin, 11, color);
  };
  label(track.points.front(), track.firstMs);
  if (track.lastMs - track.firstMs >= kDroppedGapMs) label(track.points.back(), track.lastMs);
}

void drawScreen(cairo_t* cr, const EventPlot& plot, const EventPlotLayout& layout, const std::vector<Track>& tracks) {
  const CGRect screen = layout.screen;
  roundedRectPath(cr, screen, std::min(screen.size.width, screen.size.height) * 0.07);
  setSourceColor(cr, kScreenFill);
  cairo_fill_preserve(cr);
  setSourceColor(cr, kOutline);
  cairo_set_line_width(cr, 2);
  cairo_stroke(cr);
  const CGSize points = layout.landscape ? CGSize{plot.screen.height, plot.screen.width} : plot.screen;
  const std::string caption = std::to_string(std::lround(points.width)) + " \xC3\x97 " +
                              std::to_string(std::lround(points.height)) +
                              (layout.landscape ? " points, landscape" : " points, portrait");
  text(cr, caption, {screen.minX() + 10, screen.maxY() - 22}, 11, kDimText);
  LabelSpace labels;
  cairo_save(cr);
  // A touch beyond an edge is drawn there, up to the panel's edge.
  for (const Track& track : tracks) drawTrack(cr, track, labels);
  cairo_restore(cr);
}

void drawLegend(cairo_t* cr, CGPoint at, double width, const std::vector<Track>& tracks) {
  std::map<std::int32_t, FingerSummary> fingers;
  for (const Track& track : tracks) {
    FingerSummary& f = fingers[hasOwnColor(track.mark) ? track.mark : -1];
    f.tracks += 1;
    f.records += static_cast<int>(track.points.size()) + (track.lifted ? 1 : 0);
  }
  double y = at.y;
  text(cr, "Fingers (markIndex)", {at.x, y}, 14, kText, true);
  y += 24;
  if (fingers.empty()) {
    text(cr, "no touch records", {at.x, y}, 12, kDimText);
    y += 20;
  }
  // -1 last: it is the odd one.
  std::vector<std::pair<std::int32_t, FingerSummary>> rows(fingers.begin(), fingers.end());
  std::stable_partition(rows.begin(), rows.end(), [](const auto& row) { return row.first >= 0; });
  for (const auto& [mark, summary] : rows) {
    const CGColorRef color = fingerColor(mark);
    setSourceColor(cr, color);
    if (mark >= 0) {
      cairo_rectangle(cr, at.x, y + 5, 22, 5);
      cairo_fill(cr);
    } else {
      for (int i = 0; i < 3; ++i) circle(cr, {at.x + 4 + i * 7.0, y + 7.5}, 2.6);
      cairo_fill(cr);
    }
    text(cr, std::to_string(mark), {at.x + 30, y}, 13, color, true);
    const std::string what =
        mark >= 0 ? std::to_string(summary.tracks) + (summary.tracks == 1 ? " track, " : " tracks, ") +
                        std::to_string(summary.records) + " records"
                  : std::to_string(summary.records) + " records, no mark";
    text(cr, what, {at.x + 58, y + 1}, 12, kDimText, false, width - 58);
    y += 20;
  }
  y += 12;
  text(cr, "Key", {at.x, y}, 14, kText, true);
  y += 24;
  const CGColorRef key = kText;
  cairo_set_line_width(cr, 3);
  setSourceColor(cr, key);
  cairo_move_to(cr, at.x, y + 7.5);
  cairo_line_to(cr, at.x + 22, y + 7.5);
  cairo_stroke(cr);
  text(cr, "a finger's track", {at.x + 30, y}, 12, kDimText);
  y += 20;
  const double dash[] = {4, 5};
  cairo_set_dash(cr, dash, 2, 0);
  cairo_set_line_width(cr, 1.2);
  setSourceColor(cr, key, 0.7);
  cairo_move_to(cr, at.x, y + 7.5);
  cairo_line_to(cr, at.x + 22, y + 7.5);
  cairo_stroke(cr);
  cairo_set_dash(cr, nullptr, 0, 0);
  text(cr, "1 s or more: records dropped", {at.x + 30, y}, 12, kDimText, false, width - 30);
  y += 20;
  circle(cr, {at.x + 11, y + 7.5}, 5);
  setSourceColor(cr, key);
  cairo_fill(cr);
  text(cr, "first record, with its time", {at.x + 30, y}, 12, kDimText, false, width - 30);
  y += 20;
  circle(cr, {at.x + 11, y + 7.5}, 7);
  cairo_set_line_width(cr, 2);
  cairo_stroke(cr);
  text(cr, "lifted: touch ended record", {at.x + 30, y}, 12, kDimText, false, width - 30);
}

// Whole seconds between axis labels, so that labels keep apart.
std::int32_t tickStep(double msPerPixel, double labelWidth) {
  static constexpr std::int32_t kSteps[] = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 21600, 86400};
  for (const std::int32_t seconds : kSteps) {
    if (seconds * 1000.0 / msPerPixel >= labelWidth + 28) return seconds * 1000;
  }
  return 86400 * 1000;
}

std::vector<std::int32_t> lanesOf(const EventPlot& plot) {
  std::vector<std::int32_t> lanes;
  for (const auto& record : plot.inputRecords) {
    if (record.kind() == InputRecord::Kind::Other) continue;
    const std::int32_t lane = hasOwnColor(record.payload[2]) ? record.payload[2] : -1;
    if (std::find(lanes.begin(), lanes.end(), lane) == lanes.end()) lanes.push_back(lane);
  }
  std::sort(lanes.begin(), lanes.end());
  std::stable_partition(lanes.begin(), lanes.end(), [](std::int32_t lane) { return lane >= 0; });
  return lanes;
}

double timelineHeight(std::size_t lanes) {
  return kLabelRows * kLabelRowHeight + 10 + static_cast<double>(lanes) * kLaneHeight + kAxisHeight;
}

void drawTimeline(cairo_t* cr, const EventPlot& plot, const EventPlotLayout& layout) {
  const CGRect line = layout.timeline;
  const std::vector<std::int32_t> lanes = lanesOf(plot);
  const double lanesTop = line.minY() + kLabelRows * kLabelRowHeight + 10;
  const double axisY = lanesTop + static_cast<double>(lanes.size()) * kLaneHeight + 3;

  // Game events: a stem each, and a label where one fits in one of the rows.
  std::vector<double> rowEnds(static_cast<std::size_t>(kLabelRows), -1e9);
  int hidden = 0;
  for (const auto& event : plot.gameEvents) {
    const double x = std::round(layout.timeX(event.t)) + 0.5;
    std::string label = event.e + (event.a.empty() ? "" : " " + event.a);
    const double width = std::min(textWidth(label, 11), 170.0);
    // Right of its stem, or left of it near the end of the line.
    const double left = x + width + 3 <= line.maxX() + kMargin ? x + 3 : x - 3 - width;
    std::optional<std::size_t> row;
    for (std::size_t r = 0; r < rowEnds.size() && !row; ++r) {
      if (std::min(left, x) >= rowEnds[r] + 6) row = r;
    }
    const double stemTop = line.minY() + (row ? static_cast<double>(*row) * kLabelRowHeight + 8 : kLabelRows * kLabelRowHeight);
    setSourceColor(cr, kText, row ? 0.75 : 0.4);
    cairo_set_line_width(cr, 1);
    cairo_move_to(cr, x, stemTop);
    cairo_line_to(cr, x, axisY);
    cairo_stroke(cr);
    if (!row) {
      ++hidden;
      continue;
    }
    rowEnds[*row] = std::max(x, left + width);
    text(cr, label, {left, line.minY() + static_cast<double>(*row) * kLabelRowHeight}, 11, kText, false, width);
  }

  // Touch records: a lane per finger, a tick per record; a touch ended reaches over the lane.
  for (std::size_t i = 0; i < lanes.size(); ++i) {
    const double top = lanesTop + static_cast<double>(i) * kLaneHeight;
    setSourceColor(cr, kScreenFill);
    cairo_rectangle(cr, line.minX(), top + 1, line.size.width, kLaneHeight - 2);
    cairo_fill(cr);
    const CGColorRef color = fingerColor(lanes[i]);
    text(cr, std::to_string(lanes[i]), {line.minX() - 22, top - 2.5}, 9, color, true);
    setSourceColor(cr, color);
    cairo_set_line_width(cr, 1);
    for (const auto& record : plot.inputRecords) {
      if (record.kind() == InputRecord::Kind::Other) continue;
      const std::int32_t lane = hasOwnColor(record.payload[2]) ? record.payload[2] : -1;
      if (lane != lanes[i]) continue;
      const double x = std::round(layout.timeX(record.timeOffset)) + 0.5;
      const bool ended = record.kind() == InputRecord::Kind::TouchEnded;
      cairo_move_to(cr, x, top + (ended ? -1 : 1));
      cairo_line_to(cr, x, top + kLaneHeight - (ended ? -1 : 1));
    }
    cairo_stroke(cr);
  }

  // The axis, labelled at whole-second steps that leave room between labels.
  setSourceColor(cr, kOutline);
  cairo_set_line_width(cr, 1);
  cairo_move_to(cr, line.minX(), axisY + 0.5);
  cairo_line_to(cr, line.maxX(), axisY + 0.5);
  cairo_stroke(cr);
  const double span = std::max(1, layout.lastMs - layout.firstMs);
  const std::int32_t step = tickStep(span / line.size.width, textWidth(axisClock(layout.lastMs), 11));
  const std::int32_t first = static_cast<std::int32_t>(std::ceil(layout.firstMs / static_cast<double>(step))) * step;
  for (std::int64_t ms = first; ms <= layout.lastMs; ms += step) {
    const double x = std::round(layout.timeX(static_cast<std::int32_t>(ms))) + 0.5;
    setSourceColor(cr, kOutline);
    cairo_move_to(cr, x, axisY);
    cairo_line_to(cr, x, axisY + 5);
    cairo_stroke(cr);
    const std::string t = axisClock(static_cast<std::int32_t>(ms));
    const double w = textWidth(t, 11);
    text(cr, t, {std::clamp(x - w / 2, line.minX() - 10, line.maxX() + 10 - w), axisY + 6}, 11, kDimText);
  }
  if (hidden > 0) {
    // Appended, not concatenated: GCC 12's -Wrestrict misreads "literal" + temporary at -O3.
    std::string note = "+";
    note += std::to_string(hidden);
    note += hidden == 1 ? " event" : " events";
    note += " unlabelled where they crowd";
    const double w = textWidth(note, 11);
    text(cr, note, {line.maxX() - w, line.minY() - 18}, 11, kDimText);
  }
}

std::string summary(const EventPlot& plot, const EventPlotLayout& layout) {
  std::size_t moved = 0, ended = 0;
  for (const auto& record : plot.inputRecords) {
    moved += record.kind() == InputRecord::Kind::TouchMoved;
    ended += record.kind() == InputRecord::Kind::TouchEnded;
  }
  return std::to_string(plot.inputRecords.size()) + " touch records (" + std::to_string(moved) + " moved, " +
         std::to_string(ended) + " ended) \xC2\xB7 " + std::to_string(plot.gameEvents.size()) +
         (plot.gameEvents.size() == 1 ? " game event \xC2\xB7 " : " game events \xC2\xB7 ") +
         clock(layout.firstMs) + " to " + clock(layout.lastMs);
}

}  // namespace

double drawTextLine(cairo_t* cr, const std::string& line, CGPoint at, double size, const CGColorRef& color, bool bold,
                    double maxWidth) {
  const UIFont f = font(size, bold);
  const CGSize measured = text::measure(f, line);
  const double width = maxWidth > 0 ? std::min(measured.width, maxWidth) : measured.width;
  text::drawText(cr, line, f, uiColor(color), CGRectMake(at.x, at.y, width + 1, measured.height),
                 {.truncateTail = maxWidth > 0});
  return width;
}

EventPlot makeEventPlot(const std::vector<std::pair<std::string, EventFileContents>>& files, CGSize screen) {
  EventPlot plot;
  plot.screen = screen;
  for (const auto& [name, contents] : files) {
    plot.title += (plot.title.empty() ? "" : " + ") + name;
    plot.gameEvents.insert(plot.gameEvents.end(), contents.gameEvents.begin(), contents.gameEvents.end());
    plot.inputRecords.insert(plot.inputRecords.end(), contents.inputRecords.begin(), contents.inputRecords.end());
  }
  std::stable_sort(plot.gameEvents.begin(), plot.gameEvents.end(),
                   [](const GameEvent& a, const GameEvent& b) { return a.t < b.t; });
  return plot;
}

CGColorRef fingerColor(std::int32_t markIndex) {
  return hasOwnColor(markIndex) ? kFingerColors[markIndex] : kNoMarkColor;
}

CGPoint EventPlotLayout::touchPoint(std::int32_t x, std::int32_t y) const {
  return {screen.minX() + screen.size.width * x / kCoordinateSpan,
          screen.minY() + screen.size.height * y / kCoordinateSpan};
}

double EventPlotLayout::timeX(std::int32_t ms) const {
  const double span = std::max(1, lastMs - firstMs);
  return timeline.minX() + timeline.size.width * (static_cast<double>(ms) - firstMs) / span;
}

EventPlotLayout layoutEventPlot(const EventPlot& plot, CGRect area) {
  EventPlotLayout layout;
  std::size_t moved = 0, landscape = 0;
  std::int32_t first = 0, last = 0;
  const auto extend = [&](std::int32_t ms) {
    first = std::min(first, ms);
    last = std::max(last, ms);
  };
  for (const auto& record : plot.inputRecords) {
    extend(record.timeOffset);
    if (record.kind() != InputRecord::Kind::TouchMoved) continue;
    ++moved;
    landscape += record.payload[5] == 1;
  }
  for (const auto& event : plot.gameEvents) extend(event.t);
  layout.firstMs = first;
  layout.lastMs = std::max(last, first + 1000);
  // Most records decide: a turned device writes both.
  layout.landscape = moved > 0 && landscape * 2 > moved;

  const double left = area.minX() + kMargin;
  const double right = area.maxX() - kMargin;
  const double timelineTop = area.maxY() - kMargin - timelineHeight(lanesOf(plot).size());
  layout.timeline = CGRectMake(left + 26, timelineTop, right - left - 26, area.maxY() - kMargin - timelineTop);

  const CGRect room = CGRectMake(left, area.minY() + kHeader, right - left - kLegendWidth - kMargin,
                                 timelineTop - 24 - area.minY() - kHeader);
  const CGSize screen = layout.landscape ? CGSize{plot.screen.height, plot.screen.width} : plot.screen;
  const double scale = std::max(0.0, std::min(room.size.width / screen.width, room.size.height / screen.height));
  const CGSize fitted{screen.width * scale, screen.height * scale};
  layout.screen = CGRectMake(std::round(room.minX() + (room.size.width - fitted.width) / 2),
                             std::round(room.minY() + (room.size.height - fitted.height) / 2),
                             std::round(fitted.width), std::round(fitted.height));
  return layout;
}

void drawEventPlot(cairo_t* cr, CGRect area, const EventPlot& plot) {
  const EventPlotLayout layout = layoutEventPlot(plot, area);
  cairo_save(cr);
  cairo_rectangle(cr, area.minX(), area.minY(), area.size.width, area.size.height);
  cairo_clip(cr);
  setSourceColor(cr, kGround);
  cairo_paint(cr);
  const double width = area.size.width - 2 * kMargin;
  text(cr, plot.title.empty() ? "no event files" : plot.title, {area.minX() + kMargin, area.minY() + 10}, 17, kText,
       true, width);
  text(cr, summary(plot, layout), {area.minX() + kMargin, area.minY() + 32}, 12, kDimText, false, width);
  const std::vector<Track> tracks = tracksOf(plot, layout);
  drawScreen(cr, plot, layout, tracks);
  drawLegend(cr, {area.maxX() - kMargin - kLegendWidth, area.minY() + kHeader}, kLegendWidth, tracks);
  drawTimeline(cr, plot, layout);
  cairo_restore(cr);
}

std::string eventPlotPng(const EventPlot& plot, CGSize size) {
  const int width = static_cast<int>(std::lround(size.width));
  const int height = static_cast<int>(std::lround(size.height));
  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy);
  std::unique_ptr<cairo_t, decltype(&cairo_destroy)> cr(cairo_create(surface.get()), cairo_destroy);
  drawEventPlot(cr.get(), CGRectMake(0, 0, width, height), plot);
  cairo_surface_flush(surface.get());
  std::string png;
  const auto write = [](void* closure, const unsigned char* data, unsigned int length) {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  };
  if (cairo_surface_write_to_png_stream(surface.get(), write, &png) != CAIRO_STATUS_SUCCESS) {
    throw std::runtime_error("cannot encode the plot as PNG");
  }
  return png;
}

}  // namespace tavrel::cli
