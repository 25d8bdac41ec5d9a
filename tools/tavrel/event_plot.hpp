#pragma once

// One picture of a recording: the input event file's touches over the screen's outline, one
// track per finger (markIndex) from its first record to its touch ended record, and under it the
// session's time line with the game events and the touch records. Drawn with the toolkit's own
// text and Cairo helpers. `tavrel plot`, the contact sheet of `tavrel run` and the live page of
// `tavrel serve` draw it.
//
// Thread safety: drawing uses the toolkit's text system: one thread at a time (the main thread).

#include "recording/event_file_reader.hpp"

#include <tavrel_sdk/ui/color.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

#include <cairo.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tavrel::cli {

struct EventPlot {
  std::string title;
  std::vector<GameEvent> gameEvents;
  std::vector<InputRecord> inputRecords;
  // The screen in points the coordinates were scaled to, as held upright; the records'
  // landscape word turns it on its side.
  CGSize screen{390, 844};
};

// Gathers the events of every readable file into one plot, titled with their names.
EventPlot makeEventPlot(const std::vector<std::pair<std::string, EventFileContents>>& files, CGSize screen);

inline constexpr CGSize kDefaultPlotSize{1000, 720};

// A track's gap of this much or more is where the rate limit dropped records.
inline constexpr std::int32_t kDroppedGapMs = 1000;

// Where things land in a plot of `area`: tests find the tracks by it.
struct EventPlotLayout {
  CGRect screen;    // the screen's outline
  CGRect timeline;  // the time axis's span, from the first to the last time
  std::int32_t firstMs = 0;
  std::int32_t lastMs = 0;
  bool landscape = false;

  CGPoint touchPoint(std::int32_t x, std::int32_t y) const;
  double timeX(std::int32_t ms) const;
};
EventPlotLayout layoutEventPlot(const EventPlot& plot, CGRect area);

// A finger's colour: ten that tell marks 0 to 9 apart on the dark ground, and grey for -1 (and
// any other number), whose fingers cannot be told apart.
CGColorRef fingerColor(std::int32_t markIndex);

void drawEventPlot(cairo_t* cr, CGRect area, const EventPlot& plot);

// One line of text in the toolkit's font, its top-left corner at `at`, cut short with "…" past
// `maxWidth` when that is above 0; returns the width drawn. The tool's pictures share it.
double drawTextLine(cairo_t* cr, const std::string& line, CGPoint at, double size, const CGColorRef& color,
                    bool bold = false, double maxWidth = 0);

// The plot as PNG bytes of `size` pixels. Throws std::runtime_error when Cairo fails.
std::string eventPlotPng(const EventPlot& plot, CGSize size = kDefaultPlotSize);

}  // namespace tavrel::cli
