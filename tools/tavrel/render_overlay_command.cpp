// tavrel render overlay: the overlay as a player sees it over the game scene, in the
// simulation: both services on, fingers down, a number of watermark ticks in virtual time, then
// the picture (and the view tree).

#include "commands.hpp"
#include "game_scene.hpp"
#include "render_support.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>

#include "overlay/overlay_view.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tavrel::cli {
namespace {

constexpr std::int64_t kMaxTicks = 100000;

struct Options {
  RenderOptions render;
  std::int64_t ticks = 15;
  std::optional<std::string> userIdToken;
  std::vector<std::string> fingers;
};

double parseCoordinate(std::string_view text, std::string_view whole) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw UsageError("--finger: expected X,Y in points, got '" + std::string(whole) + "'");
  }
  return value;
}

CGPoint parseFinger(std::string_view text) {
  const auto comma = text.find(',');
  if (comma == std::string_view::npos) parseCoordinate("", text);
  return {parseCoordinate(text.substr(0, comma), text), parseCoordinate(text.substr(comma + 1), text)};
}

int run(const Options& options) {
  if (options.ticks < 0 || options.ticks > kMaxTicks) throw UsageError("--ticks: expected 0 to 100000");
  std::vector<Finger> fingers;
  for (const std::string& finger : options.fingers) {
    fingers.push_back({static_cast<int>(fingers.size()) + 1, parseFinger(finger)});
  }

  RenderScreen screen(options.render);
  const auto game = std::static_pointer_cast<UIViewController>(screen.root().shared_from_this());
  game->view()->addSubview(std::make_shared<GameSceneView>(UIScreen::mainScreen().bounds()));

  auto& sdk = TavrelSDK::sharedInstance();
  sdk.initialiseOverlay(game, options.userIdToken);
  sdk.showWatermark();
  sdk.showTouches();
  if (!fingers.empty()) screen.host().fingersDown(fingers);
  // Half a tick past the last one: the timer's due times are sums of 1/15, not multiples.
  screen.run((static_cast<double>(options.ticks) + 0.5) * OverlayView::kTimerInterval);

  const int status = screen.writeOutputs();
  const auto overlay = sdk.overlayView();
  if (status == 0) {
    std::cout << options.render.output << ": " << options.render.size << " points at scale " << options.render.scale
              << ", " << options.ticks << " ticks, " << overlay->textViews().size() << " watermark copies in "
              << overlay->font()->pointSize() << "-point text, " << overlay->touchMarksInUse() << " touch marks\n";
  }
  sdk.setOverlayView(nullptr);  // before the screen's platform stops
  return status;
}

}  // namespace

void addRenderOverlayCommand(CLI::App& render, int& exitStatus) {
  auto options = std::make_shared<Options>();
  auto* command = render.add_subcommand(
      "overlay", "The overlay (watermark and touch marks) over the game scene after some watermark ticks");
  addRenderOptions(*command, options->render);
  command->add_option("--ticks", options->ticks, "watermark ticks to run, 15 a second")->capture_default_str();
  command->add_option("--user-id-token", options->userIdToken,
                      "a token of 48 characters or more; its characters 24 to 47 are the user id shown");
  command->add_option("--finger", options->fingers, "a finger down at X,Y points (repeatable)");
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
