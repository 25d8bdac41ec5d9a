#include "session_report.hpp"

#include "session_script.hpp"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace tavrel::cli {
namespace {

std::string groupDigits(std::int64_t n) {
  std::string digits = std::to_string(n < 0 ? -n : n);
  // Single characters: GCC 12 takes a string insert here for an overlapping copy (-Wrestrict).
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) digits.insert(static_cast<std::size_t>(i), 1, ',');
  if (n < 0) digits.insert(digits.begin(), '-');
  return digits;
}

std::string fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string uploadsLine(const SessionReport& r) {
  int total = 0;
  std::string byStatus;
  for (const auto& [status, count] : r.uploadsByStatus) {
    total += count;
    byStatus += (byStatus.empty() ? "" : ", ") + std::to_string(count) + " x " + status;
  }
  return groupDigits(total) + (total == 1 ? " PUT request" : " PUT requests") + (byStatus.empty() ? "" : ": " + byStatus) +
         "; " + groupDigits(static_cast<std::int64_t>(r.bytesUploaded)) + " bytes";
}

std::string outcomeLine(const SessionReport& r) {
  if (r.exitStatus == 0) return "OK: " + std::to_string(r.checksPassed) + " checks passed";
  if (r.exitStatus == 1 || r.exitStatus == 2) return std::string(r.exitStatus == 1 ? "FAILED: " : "ERROR: ") + r.failure;
  return "ENDED: " + r.failure + " after " + std::to_string(r.checksPassed) + " checks passed";
}

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

const CGColorRef kTitle{1, 1, 1, 1};
const CGColorRef kCaption{0.75, 0.78, 0.82, 1};

}  // namespace

std::string reportText(const SessionReport& r) {
  std::ostringstream out;
  out << "tavrel run " << r.script << ": " << sessionTime(r.sessionSeconds) << " of session "
      << (r.realtime ? "in real time" : "in virtual time") << ", " << fixed(r.wallSeconds, 2) << " s of wall time, "
      << fixed(r.cpuSeconds, 2) << " s of CPU\n";
  out << "  frames         " << groupDigits(r.frames) << " drawn";
  if (r.frames > 0) out << ", " << fixed(r.renderSeconds / static_cast<double>(r.frames) * 1e3, 3) << " ms each on average";
  out << "\n  story\n";
  for (const auto& entry : r.story) out << "    " << sessionTime(entry.time) << "  " << entry.text << "\n";
  for (const auto& file : r.files) {
    out << "  " << file.label << std::string(15 - std::min<std::size_t>(14, file.label.size()), ' ');
    if (file.path.empty()) {
      out << groupDigits(file.emitted) << " handed to the SDK, no file named\n";
      continue;
    }
    if (!file.created) {
      out << groupDigits(file.emitted) << " handed to the SDK, none written; no event created documents/"
          << file.path.filename().string() << "\n";
      continue;
    }
    out << groupDigits(file.emitted) << " handed to the SDK, " << groupDigits(file.written) << " written, "
        << groupDigits(std::max<std::int64_t>(0, file.emitted - file.written)) << " dropped; "
        << "documents/" << file.path.filename().string() << ", " << groupDigits(static_cast<std::int64_t>(file.bytes))
        << " bytes, " << (file.bytes == 0 ? "empty" : file.wellFormed ? "well formed" : "MALFORMED") << ", "
        << (file.sameAsLastUpload ? "the last upload holds the same bytes" : "the last upload differs or none came")
        << "\n";
  }
  if (!r.otherService.empty()) {
    // Zeros here would read as a session that sent nothing.
    out << "  uploads        not counted: they went to " << r.otherService << "\n";
    out << "  service        " << r.otherService << ", another service: its requests are not counted\n";
  } else {
    out << "  uploads        " << uploadsLine(r) << "\n";
    out << "  service        " << r.validateRequests << " validate, " << r.loginRequests << " login requests; "
        << groupDigits(static_cast<std::int64_t>(r.requests)) << (r.requests == 1 ? " request" : " requests") << " over "
        << groupDigits(static_cast<std::int64_t>(r.connections)) << (r.connections == 1 ? " connection" : " connections")
        << "\n";
  }
  out << "  snapshots      " << r.snapshots.size() << " in snapshots/"
      << (r.snapshots.empty() ? "" : ", told in contact-sheet.png") << "\n";
  out << "  exit           " << (r.exitRecorded ? "exit(" + std::to_string(*r.exitRecorded) + ") recorded" : "none") << "\n";
  out << "  SDK log        " << groupDigits(static_cast<std::int64_t>(r.logLines)) << " lines in sdk.log\n";
  out << outcomeLine(r) << "\n";
  return out.str();
}

nlohmann::json reportJson(const SessionReport& r) {
  nlohmann::json story = nlohmann::json::array();
  for (const auto& entry : r.story) story.push_back({{"time", entry.time}, {"text", entry.text}});
  nlohmann::json files = nlohmann::json::array();
  for (const auto& f : r.files) {
    files.push_back({{"label", f.label}, {"path", f.path.string()}, {"created", f.created}, {"bytes", f.bytes}, {"emitted", f.emitted},
                     {"written", f.written}, {"dropped", std::max<std::int64_t>(0, f.emitted - f.written)},
                     {"wellFormed", f.wellFormed}, {"sameAsLastUpload", f.sameAsLastUpload}});
  }
  nlohmann::json snapshots = nlohmann::json::array();
  for (const auto& s : r.snapshots) {
    snapshots.push_back({{"name", s.name}, {"time", s.time}, {"png", s.png.string()}, {"tree", s.tree.string()}});
  }
  // Another service's requests: not known, which is not zero.
  const auto count = [&](const auto& value) { return r.otherService.empty() ? nlohmann::json(value) : nlohmann::json(nullptr); };
  return {{"script", r.script},
          {"sessionSeconds", r.sessionSeconds},
          {"wallSeconds", r.wallSeconds},
          {"cpuSeconds", r.cpuSeconds},
          {"realtime", r.realtime},
          {"frames", r.frames},
          {"renderSeconds", r.renderSeconds},
          {"story", story},
          {"files", files},
          {"uploads", count(r.uploadsByStatus)},
          {"bytesUploaded", count(r.bytesUploaded)},
          {"validateRequests", count(r.validateRequests)},
          {"loginRequests", count(r.loginRequests)},
          {"requests", count(r.requests)},
          {"connections", count(r.connections)},
          {"otherService", r.otherService.empty() ? nlohmann::json(nullptr) : nlohmann::json(r.otherService)},
          {"checksPassed", r.checksPassed},
          {"snapshots", snapshots},
          {"exitRecorded", r.exitRecorded ? nlohmann::json(*r.exitRecorded) : nlohmann::json(nullptr)},
          {"sdkLogLines", r.logLines},
          {"failure", r.failure},
          {"exitStatus", r.exitStatus}};
}

bool writeContactSheet(const SessionReport& report, const std::filesystem::path& png, const EventPlot* plot) {
  if (report.snapshots.empty()) return false;
  constexpr double kThumbWidth = 240;
  constexpr double kGap = 20;
  constexpr double kCaptionHeight = 44;
  constexpr double kHeader = 76;
  std::vector<Surface> pictures;
  for (const auto& snapshot : report.snapshots) {
    Surface picture(cairo_image_surface_create_from_png(snapshot.png.c_str()), cairo_surface_destroy);
    if (cairo_surface_status(picture.get()) != CAIRO_STATUS_SUCCESS) {
      throw std::runtime_error("cannot read " + snapshot.png.string());
    }
    pictures.push_back(std::move(picture));
  }
  const double aspect = static_cast<double>(cairo_image_surface_get_height(pictures[0].get())) /
                        cairo_image_surface_get_width(pictures[0].get());
  const double thumbHeight = std::round(kThumbWidth * aspect);
  const std::size_t columns = std::min<std::size_t>(pictures.size(), 5);
  const std::size_t rows = (pictures.size() + columns - 1) / columns;
  const int width = static_cast<int>(kGap + static_cast<double>(columns) * (kThumbWidth + kGap));
  const double gridBottom = kHeader + static_cast<double>(rows) * (thumbHeight + kCaptionHeight + kGap);
  // The plot spans the sheet, never narrower than its default.
  const CGSize plotSize{std::max<double>(width - 2 * kGap, kDefaultPlotSize.width),
                        std::round(std::max<double>(width - 2 * kGap, kDefaultPlotSize.width) * 0.6)};
  const int sheetWidth = plot ? std::max(width, static_cast<int>(plotSize.width + 2 * kGap)) : width;
  const int height = static_cast<int>(gridBottom + (plot ? plotSize.height + kGap : 0));

  Surface sheet(cairo_image_surface_create(CAIRO_FORMAT_RGB24, sheetWidth, height), cairo_surface_destroy);
  Context cr(cairo_create(sheet.get()), cairo_destroy);
  cairo_t* c = cr.get();
  cairo_set_source_rgb(c, 0.12, 0.13, 0.15);
  cairo_paint(c);
  drawTextLine(c, report.script + " \xE2\x80\x94 " + sessionTime(report.sessionSeconds) + " of session", {kGap, 16}, 22,
               kTitle, true, sheetWidth - 2 * kGap);
  drawTextLine(c, outcomeLine(report) + " \xC2\xB7 " + uploadsLine(report), {kGap, 46}, 14, kCaption, false,
               sheetWidth - 2 * kGap);

  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const double x = kGap + static_cast<double>(i % columns) * (kThumbWidth + kGap);
    const double y = kHeader + static_cast<double>(i / columns) * (thumbHeight + kCaptionHeight + kGap);
    cairo_save(c);
    cairo_rectangle(c, x, y, kThumbWidth, thumbHeight);
    cairo_clip(c);
    cairo_set_source_rgb(c, 0, 0, 0);
    cairo_paint(c);
    const double scale = kThumbWidth / cairo_image_surface_get_width(pictures[i].get());
    cairo_translate(c, x, y);
    cairo_scale(c, scale, scale);
    cairo_set_source_surface(c, pictures[i].get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(c), CAIRO_FILTER_GOOD);
    cairo_paint(c);
    cairo_restore(c);
    drawTextLine(c, sessionTime(report.snapshots[i].time), {x, y + thumbHeight + 6}, 15, kTitle, true, kThumbWidth);
    drawTextLine(c, report.snapshots[i].name, {x, y + thumbHeight + 24}, 13, kCaption, false, kThumbWidth);
  }
  if (plot) drawEventPlot(c, CGRectMake(kGap, gridBottom, plotSize.width, plotSize.height), *plot);
  cairo_surface_flush(sheet.get());
  if (cairo_surface_write_to_png(sheet.get(), png.c_str()) != CAIRO_STATUS_SUCCESS) {
    throw std::runtime_error("cannot write " + png.string());
  }
  return true;
}

}  // namespace tavrel::cli
