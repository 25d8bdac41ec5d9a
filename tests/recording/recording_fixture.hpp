#pragma once

// A simulated session, its time in whole milliseconds from the platform's start.

#include "sample_events.hpp"
#include "support/sandbox.hpp"

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

  std::vector<std::string> logs(std::string_view prefix = "SDK > Failed") {
    std::vector<std::string> lines;
    for (std::string& line : sim().logLines())
      if (line.starts_with(prefix)) lines.push_back(std::move(line));
    return lines;
  }

 private:
  std::int64_t origin_ = 0;
};

}  // namespace tavrel::testing
