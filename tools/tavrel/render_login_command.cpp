// tavrel render login: the login page as a player sees it, in one of its states, in the
// simulation. A refusal goes the real way: a wrong password sent over HTTPS to the mock service
// in this process, and the alert its reply brings.

#include "commands.hpp"
#include "render_support.hpp"

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "login/login_view_controller.hpp"

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavrel::cli {
namespace {

constexpr const char* kUsername = "ann";
constexpr const char* kPassword = "secret";
constexpr const char* kWrongPassword = "not-the-password";
// Long enough for a page or an alert to finish coming in.
constexpr double kSettleSeconds = 1.0;

struct Options {
  RenderOptions render;
  std::string state = "ready";
};

// The player's input through the screen, as a person would give it.
void typeInto(UIHost& host, std::string_view placeholder, std::string_view text) {
  if (!host.tapElement(placeholder)) throw std::runtime_error("no field shows '" + std::string(placeholder) + "'");
  host.typeText(text);
}

int run(const Options& options) {
  // The service knows another password, so a submitted form comes back with the alert.
  endpoint::HttpsServer service;
  endpoint::MockService{.users = {{kUsername, kPassword}}}.install(service);
  service.start();
  auto sim = SimPlatform::create();
  sim->setTrustedCertificatesFile(service.caFile());
  sim->setServiceBaseUrlForTesting(service.baseUrl());
  sim->setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["game"]}]})");

  RenderScreen screen(options.render, std::move(sim));
  UIHost& host = screen.host();
  auto page = std::make_shared<LoginViewController>(nullptr);
  screen.root().presentViewController(page, true, nullptr);
  screen.run(kSettleSeconds);

  if (options.state != "ready") {
    typeInto(host, "Tavrel username", kUsername);
    typeInto(host, "Password", kWrongPassword);
  }
  if (options.state == "waiting" || options.state == "refused") {
    if (!host.tapElement("Login")) throw std::runtime_error("no Login button on the page");
  }
  if (options.state == "refused") {
    // The request, its reply and the failure step, then the alert's fade.
    screen.platform().runUntilIdle();
    screen.run(kSettleSeconds);
  }

  const int status = screen.writeOutputs();
  if (status == 0) {
    const auto& button = static_cast<LoginView&>(*page->view()).btnLogin();
    const auto alert = std::dynamic_pointer_cast<UIAlertController>(page->presentedViewController());
    std::cout << options.render.output << ": " << options.render.size << " points at scale " << options.render.scale
              << ", state " << options.state << ", button \"" << button->currentTitle().value_or("") << "\""
              << (alert ? ", alert \"" + alert->message().value_or("") + "\"" : std::string()) << "\n";
  }
  page.reset();  // before the screen's platform stops
  return status;
}

}  // namespace

void addRenderLoginCommand(CLI::App& render, int& exitStatus) {
  auto options = std::make_shared<Options>();
  auto* command = render.add_subcommand("login", "The login page in one of its states");
  addRenderOptions(*command, options->render);
  command->add_option("--state", options->state,
                      "ready; typed (a user name and a masked password); waiting (after Login); "
                      "refused (the alert after a wrong password)")
      ->check(CLI::IsMember({"ready", "typed", "waiting", "refused"}))
      ->capture_default_str();
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
