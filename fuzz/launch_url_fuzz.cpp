// Any text handed to the launch-URL reader ends in one of its three outcomes, never a crash,
// and a composed URL always reads back to the values it was made from.

#include "session/launch_url.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  (void)tavrel::readLaunchUrl("mygame://validate?" + text);
  (void)tavrel::readLaunchUrl(text);

  tavrel::LaunchUrlValues values{.scheme = "mygame", .launchToken = std::string(48, 't') + text, .gameEventUrl = text};
  try {
    const auto reading = tavrel::readLaunchUrl(tavrel::composeLaunchUrl(values));
    if (reading.items.at("launchToken") != values.launchToken || reading.items.at("gameEventUrl") != text) std::abort();
  } catch (const std::invalid_argument&) {
    // Refused: text holding "+" or not UTF-8.
  }
  return 0;
}
