// tavrel render overlay: the overlay as a player sees it over a game, in the simulation: both
// services on, fingers down, a number of watermark ticks in virtual time, then the picture
// (and the view tree).

#include "commands.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui.hpp>

#include "overlay/overlay_view.hpp"
#include "platform/sim_platform.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tavrel::cli {
namespace {

constexpr double kMaxScreenPoints = 10000.0;
constexpr double kMaxScale = 4.0;
constexpr std::int64_t kMaxTicks = 100000;

struct Options {
  std::string size;
  double scale = 2.0;
  std::int64_t ticks = 15;
  std::optional<std::string> userIdToken;
  std::vector<std::string> fingers;
  std::string output;
  std::optional<std::string> tree;
};

double parseNumber(std::string_view text, std::string_view option, std::string_view expected) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw UsageError(std::string(option) + ": expected " + std::string(expected) + ", got '" + std::string(text) + "'");
  }
  return value;
}

// "WxH" or "X,Y": two numbers around one separator.
std::pair<double, double> parsePair(std::string_view text, char separator, std::string_view option,
                                    std::string_view expected) {
  const auto at = text.find(separator);
  if (at == std::string_view::npos) {
    throw UsageError(std::string(option) + ": expected " + std::string(expected) + ", got '" + std::string(text) + "'");
  }
  return {parseNumber(text.substr(0, at), option, expected), parseNumber(text.substr(at + 1), option, expected)};
}

// Something game-like under the overlay, so that the white text and discs are seen against a
// scene: a sky, a ground band, a sun and a few platforms, all plain coloured views.
std::shared_ptr<UIViewController> makeGame(CGSize screen) {
  auto game = std::make_shared<UIViewController>();
  const auto scene = game->view();
  scene->setBackgroundColor(UIColor::colorWithRed(0.18, 0.36, 0.62, 1.0));
  const double w = screen.width;
  const double h = screen.height;
  auto add = [&scene](CGRect frame, double red, double green, double blue, double cornerRadius = 0.0) {
    auto view = std::make_shared<UIView>(frame);
    view->setBackgroundColor(UIColor::colorWithRed(red, green, blue, 1.0));
    view->layer().setCornerRadius(cornerRadius);
    scene->addSubview(view);
  };
  const double sun = std::min(w, h) * 0.18;
  add(CGRectMake(w * 0.72, h * 0.08, sun, sun), 0.98, 0.82, 0.25, sun / 2.0);
  add(CGRectMake(0.0, h * 0.78, w, h * 0.22), 0.22, 0.52, 0.22);
  add(CGRectMake(w * 0.10, h * 0.58, w * 0.28, h * 0.04), 0.55, 0.35, 0.20);
  add(CGRectMake(w * 0.55, h * 0.45, w * 0.30, h * 0.04), 0.55, 0.35, 0.20);
  add(CGRectMake(w * 0.20, h * 0.70, h * 0.08, h * 0.08), 0.85, 0.25, 0.25, 4.0);
  return game;
}

int run(const Options& options) {
  const auto [width, height] = parsePair(options.size, 'x', "--size", "WxH in points");
  if (!(width >= 1.0 && height >= 1.0 && width <= kMaxScreenPoints && height <= kMaxScreenPoints)) {
    throw UsageError("--size: width and height must be from 1 to 10000 points");
  }
  if (!(options.scale > 0.0 && options.scale <= kMaxScale)) throw UsageError("--scale: expected more than 0, up to 4");
  if (options.ticks < 0 || options.ticks > kMaxTicks) throw UsageError("--ticks: expected 0 to 100000");
  std::vector<Finger> fingers;
  for (const std::string& finger : options.fingers) {
    const auto [x, y] = parsePair(finger, ',', "--finger", "X,Y in points");
    fingers.push_back({static_cast<int>(fingers.size()) + 1, CGPointMake(x, y)});
  }

  const auto sim = SimPlatform::create();
  Platform::install(sim);
  UIHost::install(std::make_shared<HeadlessHost>(CGSizeMake(width, height), options.scale));
  auto window = std::make_shared<UIWindow>();
  const auto game = makeGame(CGSizeMake(width, height));
  window->setRootViewController(game);
  window->makeKeyAndVisible();

  auto& sdk = TavrelSDK::sharedInstance();
  sdk.initialiseOverlay(game, options.userIdToken);
  sdk.showWatermark();
  sdk.showTouches();
  auto& host = UIHost::current();
  if (!fingers.empty()) host.fingersDown(fingers);
  // Half a tick past the last one: the timer's due times are sums of 1/15, not multiples.
  sim->advance((static_cast<double>(options.ticks) + 0.5) * OverlayView::kTimerInterval);

  if (!host.writePNG(options.output)) {
    std::cerr << "tavrel: cannot write " << options.output << "\n";
    return 1;
  }
  if (options.tree) {
    std::ofstream tree(*options.tree);
    tree << dumpViewTree() << "\n";
    if (!tree.flush()) {
      std::cerr << "tavrel: cannot write " << *options.tree << "\n";
      return 1;
    }
  }
  const auto overlay = sdk.overlayView();
  std::cout << options.output << ": " << width << " x " << height << " points at scale " << options.scale << ", "
            << options.ticks << " ticks, " << overlay->textViews().size() << " watermark copies in "
            << overlay->font()->pointSize() << "-point text, " << overlay->touchMarksInUse() << " touch marks\n";
  sim->shutdown();
  return 0;
}

}  // namespace

void addRenderOverlayCommand(CLI::App& render, int& exitStatus) {
  auto options = std::make_shared<Options>();
  auto* command = render.add_subcommand(
      "overlay", "The overlay (watermark and touch marks) over a simple game scene after some watermark ticks");
  command->add_option("--size", options->size, "the screen in points, WxH")->required();
  command->add_option("--scale", options->scale, "pixels per point")->capture_default_str();
  command->add_option("--ticks", options->ticks, "watermark ticks to run, 15 a second")->capture_default_str();
  command->add_option("--user-id-token", options->userIdToken,
                      "a token of 48 characters or more; its characters 24 to 47 are the user id shown");
  command->add_option("--finger", options->fingers, "a finger down at X,Y points (repeatable)");
  command->add_option("-o,--output", options->output, "the PNG to write")->required();
  command->add_option("--tree", options->tree, "also write the view tree as JSON here");
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
