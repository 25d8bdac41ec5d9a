// tavrel launch-url parse URL | compose --scheme S --token T [...]

#include "commands.hpp"

#include "session/launch_url.hpp"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tavrel::cli {
namespace {

int parse(const std::string& url) {
  const LaunchUrlReading reading = readLaunchUrl(url);
  switch (reading.outcome) {
    case LaunchUrlReading::Outcome::NotForUs:
      std::cout << "null\n";
      return 0;
    case LaunchUrlReading::Outcome::Parsed:
      // std::map keeps the keys sorted.
      std::cout << nlohmann::json(reading.items).dump() << "\n";
      return 0;
    case LaunchUrlReading::Outcome::Malformed:
      break;
  }
  throw UsageError("the game ignores this URL: " + reading.problem);
}

}  // namespace

void addLaunchUrlCommands(CLI::App& app, int& exitStatus) {
  auto* launchUrl = app.add_subcommand("launch-url", "Read and write the launch URLs that start a session");
  launchUrl->require_subcommand(1);

  auto url = std::make_shared<std::string>();
  auto* parseCommand = launchUrl->add_subcommand(
      "parse", "Print the items the game reads from URL as one line of JSON (null when it ignores the URL)");
  parseCommand->add_option("URL", *url, "the launch URL")->required();
  parseCommand->callback([url, &exitStatus] { exitStatus = parse(*url); });

  auto values = std::make_shared<LaunchUrlValues>();
  auto* compose = launchUrl->add_subcommand("compose", "Print a launch URL that the game reads back exactly");
  compose->add_option("--scheme", values->scheme, "the game's URL scheme")->required();
  compose->add_option("--token", values->launchToken, "the launch token (48 characters or more)")->required();
  compose->add_option("--game-event-url", values->gameEventUrl, "upload URL of the game event file");
  compose->add_option("--input-event-url", values->inputEventUrl, "upload URL of the input event file");
  compose->add_option("--recording-started-at", values->recordingStartedAt,
                      "start of the recording, milliseconds since 1970");
  compose->callback([values, &exitStatus] {
    try {
      std::cout << composeLaunchUrl(*values) << "\n";
      exitStatus = 0;
    } catch (const std::invalid_argument& e) {
      throw UsageError(std::string("cannot compose: ") + e.what());
    }
  });
}

}  // namespace tavrel::cli
