#include "render_support.hpp"

#include <charconv>
#include <cmath>
#include <fstream>
#include <iostream>
#include <system_error>

namespace tavrel::cli {

namespace {

constexpr double kMaxScreenPoints = 10000.0;
constexpr double kMaxScale = 4.0;

double parseDimension(std::string_view text, std::string_view whole, std::string_view option) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !(value >= 1.0 && value <= kMaxScreenPoints)) {
    throw UsageError(std::string(option) + ": expected WxH in points, each from 1 to 10000, got '" + std::string(whole) + "'");
  }
  return value;
}

}  // namespace

void addRenderOptions(CLI::App& command, RenderOptions& options) {
  command.add_option("--size", options.size, "the screen in points, WxH")->capture_default_str();
  command.add_option("--scale", options.scale, "pixels per point, above 0 and up to 4")->capture_default_str();
  command.add_option("-o,--output", options.output, "the PNG to write")->required();
  command.add_option("--tree", options.tree, "also write the view tree as JSON here");
}

CGSize parseScreenSize(std::string_view text, std::string_view option) {
  const auto x = text.find('x');
  if (x == std::string_view::npos) parseDimension("", text, option);
  return {parseDimension(text.substr(0, x), text, option), parseDimension(text.substr(x + 1), text, option)};
}

RenderScreen::RenderScreen(const RenderOptions& options, std::shared_ptr<SimPlatform> platform)
    : options_(options), platform_(platform ? std::move(platform) : SimPlatform::create()) {
  const CGSize size = parseScreenSize(options.size);
  if (!(options.scale > 0.0 && options.scale <= kMaxScale)) throw UsageError("--scale: expected above 0, up to 4");
  Platform::install(platform_);
  UIHost::install(std::make_shared<HeadlessHost>(size, options.scale));
  window_ = std::make_shared<UIWindow>();
  root_ = std::make_shared<UIViewController>();
  window_->setRootViewController(root_);
  window_->makeKeyAndVisible();
}

RenderScreen::~RenderScreen() {
  if (auto* responder = UIResponder::currentFirstResponder()) responder->resignFirstResponder();
  root_.reset();
  window_.reset();
  platform_->shutdown();
}

void RenderScreen::run(double seconds) { platform_->advance(seconds); }

int RenderScreen::writeOutputs() {
  if (!host().writePNG(options_.output)) {
    std::cerr << "tavrel: cannot write " << options_.output << "\n";
    return 1;
  }
  if (options_.tree) {
    std::ofstream tree(*options_.tree);
    tree << dumpViewTree() << "\n";
    if (!tree.flush()) {
      std::cerr << "tavrel: cannot write " << *options_.tree << "\n";
      return 1;
    }
  }
  return 0;
}

}  // namespace tavrel::cli
