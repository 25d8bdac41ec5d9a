// tavrel watermark: runs the watermark engine as the overlay does, without a screen, and prints
// the placements of each tick as one line of JSON.

#include "commands.hpp"

#include "platform/sim_platform.hpp"
#include "watermark/watermark.hpp"
#include "watermark/watermark_arithmetic.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace tavrel::cli {
namespace {

// The overlay's fixed step: the float nearest to 1/15, not the timer's double interval.
constexpr float kTickStep = 1.0f / 15.0f;
// Bounds that keep every tick's list finite and small: the engine walks a row copy by copy.
constexpr float kMaxDimension = 100000.0f;
constexpr float kMaxCopiesPerLine = 10000.0f;

struct Size {
  float width = 0.0f;
  float height = 0.0f;
};

struct Options {
  std::int32_t behaviour = WatermarkBehaviourTypeTicker;
  std::string canvas = "844x390";
  // "2026:03:09T14:05:33+01:00-no-user-id" in DejaVu Sans at the font size of a 390-high canvas.
  std::string text = "199.62x11.64";
  std::int64_t ticks = 15;
  std::optional<std::string> seed;
  std::int64_t every = 1;
};

float parseDimension(std::string_view text, std::string_view option) {
  float value = 0.0f;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value) ||
      value < 0.0f || value > kMaxDimension) {
    throw UsageError(std::string(option) + ": expected WxH with numbers from 0 to 100000, got '" +
                     std::string(text) + "'");
  }
  return value;
}

Size parseSize(std::string_view text, std::string_view option) {
  const auto separator = text.find('x');
  if (separator == std::string_view::npos) {
    throw UsageError(std::string(option) + ": expected WxH, got '" + std::string(text) + "'");
  }
  return {parseDimension(text.substr(0, separator), option),
          parseDimension(text.substr(separator + 1), option)};
}

void appendNumber(std::string& out, float value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  // Shortest text that reads back as the same float.
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

void appendList(std::string& out, const std::optional<std::vector<RenderItem>>& items) {
  if (!items) {
    out += "null";
    return;
  }
  out += '[';
  for (std::size_t i = 0; i < items->size(); ++i) {
    if (i > 0) out += ',';
    out += '[';
    appendNumber(out, (*items)[i].x());
    out += ',';
    appendNumber(out, (*items)[i].y());
    out += ']';
  }
  out += ']';
}

std::uint64_t parseSeed(std::string_view text) {
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw UsageError("--seed: expected a whole number from 0 to 2^64 - 1, got '" + std::string(text) + "'");
  }
  return seed;
}

void run(const Options& options) {
  if (options.behaviour < WatermarkBehaviourTypeTicker ||
      options.behaviour > WatermarkBehaviourTypeRandom) {
    throw UsageError("--behaviour: expected 0 (ticker), 1 (bouncing), 2 (multi-line) or 3 (random)");
  }
  const Size canvas = parseSize(options.canvas, "--canvas");
  const Size text = parseSize(options.text, "--text");
  if (canvas.width <= 0.0f || canvas.height <= 0.0f) {
    throw UsageError("--canvas: width and height must be greater than 0");
  }
  const float copyStep =
      watermark_detail::rowStep(text.width, WatermarkBehaviour().getSpacerWidth(canvas.height));
  if (!(copyStep > 0.0f) || canvas.width / copyStep > kMaxCopiesPerLine) {
    throw UsageError("--text: too narrow for the canvas (more than 10000 copies a line)");
  }
  if (options.ticks < 0) throw UsageError("--ticks: expected 0 or more");
  if (options.every < 1) throw UsageError("--every: expected 1 or more");

  if (options.seed) Platform::install(SimPlatform::create({.seed = parseSeed(*options.seed)}));

  Watermark watermark;
  watermark.setCanvasDimensionWithWidth(canvas.width, canvas.height);
  watermark.setBehaviourType(options.behaviour);
  std::string line;
  for (std::int64_t tick = 1; tick <= options.ticks; ++tick) {
    // The overlay's order: the update still sees the previous tick's text (none on the first).
    watermark.updateWithDelta(kTickStep);
    watermark.setTextDimensionsWithWidth(text.width, text.height);
    const auto items = watermark.getRenderList();
    if (tick % options.every != 0) continue;
    line.clear();
    appendList(line, items);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
  std::fflush(stdout);
}

}  // namespace

void addWatermarkCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "watermark", "Run the watermark engine on a canvas and print each tick's placements as JSON");
  command->add_option("--behaviour", options->behaviour,
                      "0 ticker, 1 bouncing, 2 multi-line ticker, 3 random")
      ->capture_default_str();
  command->add_option("--canvas", options->canvas, "canvas size in points, WxH")
      ->capture_default_str();
  command->add_option("--text", options->text, "measured text size in points, WxH")
      ->capture_default_str();
  command->add_option("--ticks", options->ticks, "number of ticks of 1/15 s")->capture_default_str();
  command->add_option("--seed", options->seed,
                      "seed a simulated platform's random numbers (default: the system's)");
  command->add_option("--every", options->every, "print every K-th tick only")
      ->capture_default_str();
  command->callback([options, &exitStatus] {
    run(*options);
    exitStatus = 0;
  });
}

}  // namespace tavrel::cli
