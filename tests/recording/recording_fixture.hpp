#pragma once

// A simulated session for the recording tests: virtual time counted in whole milliseconds from
// the platform's start, the event files by their current names, and the log lines by prefix.

#include "sample_events.hpp"
#include "support/sandbox.hpp"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavrel::testing {

class RecordingTest : public SimulatedSession {
 protected:
  void SetUp() override {
    SimulatedSession::SetUp();
    origin_ = sim().currentMilliseconds();
  }

  // The wall clock at the platform's start, in milliseconds since 1970.
  std::int64_t originMs() const { return origin_; }

  // Moves virtual time until the clock reads originMs() + ms. It lands in the middle of the
  // millisecond, so truncating the clock to whole milliseconds gives exactly that value.
  void advanceToMs(std::int64_t ms) { sim().advance((static_cast<double>(ms) + 0.5) / 1000.0 - sim().elapsed()); }

  // Sets up recording and lets the worker's first pass run, so that it sees no event yet.
  void initialise(const std::optional<std::string>& gameUrl, const std::optional<std::string>& inputUrl,
                  std::int64_t start) {
    sdk().initialiseEventsWithGameEventUrl(gameUrl, inputUrl, start);
    sim().runUntilIdle();
  }

  std::string gameEventPath() const { return documents() + "/" + _gameEventFilename.get().value_or("?"); }
  std::string inputEventPath() const { return documents() + "/" + _inputEventFilename.get().value_or("?"); }

  std::vector<std::string> logsStartingWith(std::string_view prefix) {
    std::vector<std::string> lines = sim().logLines();
    lines.erase(
        std::remove_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.rfind(prefix, 0) != 0; }),
        lines.end());
    return lines;
  }

 private:
  std::int64_t origin_ = 0;
};

}  // namespace tavrel::testing
