// tavrel render login: the login page as a player sees it, in one of its states, in the
// simulation. A refusal goes the real way: a wrong password sent over HTTPS to a mock service in
// this process, and the alert the reply brings.

#include "commands.hpp"

#include <tavrel_sdk/ui.hpp>

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "login/login_view_controller.hpp"
#include "platform/sim_platform.hpp"

#include <charconv>
#include <cmath>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace tavrel::cli {
namespace {

constexpr double kMaxScreenPoints = 10000.0;
constexpr double kMaxScale = 4.0;
constexpr const char* kUsername = "ann";
constexpr const char* kPassword = "secret";
constexpr const char* kWrongPassword = "not-the-password";
// Long enough for a page or an alert to finish coming in.
constexpr double kSettleSeconds = 1.0;

struct Options {
  std::string size;
  double scale = 3.0;
  std::string state = "ready";
  std::string output;
  std::optional<std::string> tree;
};

double parseNumber(std::string_view text, std::string_view option) {
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw UsageError(std::string(option) + ": expected WxH in points, got '" + std::string(text) + "'");
  }
  return value;
}

CGSize parseSize(std::string_view text) {
  const auto at = text.find('x');
  if (at == std::string_view::npos) throw UsageError("--size: expected WxH in points, got '" + std::string(text) + "'");
  const CGSize size{parseNumber(text.substr(0, at), "--size"), parseNumber(text.substr(at + 1), "--size")};
  if (!(size.width >= 1.0 && size.height >= 1.0 && size.width <= kMaxScreenPoints && size.height <= kMaxScreenPoints)) {
    throw UsageError("--size: width and height must be from 1 to 10000 points");
  }
  return size;
}

// The player's input through the screen, as a test or a person would give it.
void typeInto(UIHost& host, std::string_view placeholder, std::string_view text) {
  if (!host.tapElement(placeholder)) throw std::runtime_error("no field shows '" + std::string(placeholder) + "'");
  host.typeText(text);
}

int run(const Options& options) {
  const CGSize screen = parseSize(options.size);
  if (!(options.scale > 0.0 && options.scale <= kMaxScale)) throw UsageError("--scale: expected more than 0, up to 4");

  // The player's password is not the one the service knows, so a submitted form comes back
  // with the alert.
  endpoint::HttpsServer service;
  endpoint::MockService{.users = {{kUsername, kPassword}}}.install(service);
  service.start();

  const auto sim = SimPlatform::create();
  sim->setTrustedCertificatesFile(service.caFile());
  sim->setServiceBaseUrlForTesting(service.baseUrl());
  sim->setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["game"]}]})");
  Platform::install(sim);
  UIHost::install(std::make_shared<HeadlessHost>(screen, options.scale));
  auto& host = UIHost::current();

  auto window = std::make_shared<UIWindow>();
  auto game = std::make_shared<UIViewController>();
  window->setRootViewController(game);
  window->makeKeyAndVisible();
  auto page = std::make_shared<LoginViewController>(nullptr);
  game->presentViewController(page, true, nullptr);
  sim->advance(kSettleSeconds);

  if (options.state != "ready") {
    typeInto(host, "Tavrel username", kUsername);
    typeInto(host, "Password", kWrongPassword);
  }
  if (options.state == "waiting" || options.state == "refused") {
    if (!host.tapElement("Login")) throw std::runtime_error("no Login button on the page");
  }
  if (options.state == "refused") {
    // Request, reply and the failure step, then the alert's fade.
    sim->runUntilIdle();
    sim->advance(kSettleSeconds);
  }

  int status = 0;
  if (!host.writePNG(options.output)) {
    std::cerr << "tavrel: cannot write " << options.output << "\n";
    status = 1;
  }
  if (status == 0 && options.tree) {
    std::ofstream tree(*options.tree);
    tree << dumpViewTree() << "\n";
    if (!tree.flush()) {
      std::cerr << "tavrel: cannot write " << *options.tree << "\n";
      status = 1;
    }
  }
  if (status == 0) {
    const auto& button = static_cast<LoginView&>(*page->view()).btnLogin();
    const auto alert = std::dynamic_pointer_cast<UIAlertController>(page->presentedViewController());
    std::cout << options.output << ": " << screen.width << " x " << screen.height << " points at scale "
              << options.scale << ", state " << options.state << ", button \"" << button->currentTitle().value_or("")
              << "\"" << (alert ? ", alert \"" + alert->message().value_or("") + "\"" : std::string()) << "\n";
  }
  // Views go before the platform their timers run on.
  page.reset();
  game.reset();
  window.reset();
  sim->shutdown();
  return status;
}

}  // namespace

void addRenderLoginCommand(CLI::App& render, int& exitStatus) {
  auto options = std::make_shared<Options>();
  auto* command = render.add_subcommand("login", "The login page in one of its states");
  command->add_option("--size", options->size, "the screen in points, WxH")->required();
  command->add_option("--scale", options->scale, "pixels per point")->capture_default_str();
  command->add_option("--state", options->state,
                      "ready; typed (a user name and a masked password); waiting (after Login); "
                      "refused (the alert after a wrong password)")
      ->check(CLI::IsMember({"ready", "typed", "waiting", "refused"}))
      ->capture_default_str();
  command->add_option("-o,--output", options->output, "the PNG to write")->required();
  command->add_option("--tree", options->tree, "also write the view tree as JSON here");
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
