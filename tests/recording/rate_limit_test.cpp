#include "recording_fixture.hpp"

#include <filesystem>

namespace tavrel::testing {
namespace {

class RateLimit : public RecordingTest {
 protected:
  void SetUp() override {
    RecordingTest::SetUp();
    initialise(std::nullopt, "https://127.0.0.1:9/i.evt", originMs());
  }

  std::vector<bool> emitAt(const std::vector<std::int64_t>& times) {
    std::vector<bool> accepted;
    for (const std::int64_t ms : times) {
      advanceToMs(ms);
      const std::size_t before = fileSize();
      sdk().emitInputEvent({1, static_cast<std::int32_t>(ms)});
      accepted.push_back(fileSize() > before);
    }
    return accepted;
  }

  std::size_t fileSize() {
    return std::filesystem::exists(inputEventPath()) ? std::filesystem::file_size(inputEventPath()) : 0;
  }
};

TEST_F(RateLimit, RunsOfFiveEndExactly1000MillisecondsAfterTheirLastAcceptedEvent) {
  // Every 300 ms: dropped events do not lengthen the run. Then a run whose end falls 999 ms and
  // 1000 ms after its last event.
  EXPECT_EQ(emitAt({0, 300, 600, 900, 1200, 1500, 1800, 2100, 2400, 2700, 2701, 2702, 2703, 3702, 3703}),
            (std::vector<bool>{true, true, true, true, true, false, false, false, true, true, true, true, true, false,
                               true}));
  EXPECT_EQ(std::pair(_eventsSinceLastUpdate.load(), _lastUpdated.load()), std::pair(1, originMs() + 3703));
}

TEST_F(RateLimit, ClockSteppingBackDoesNotEndARun) {
  emitAt({0, 1, 2, 3, 4});
  sim().stepWallClock(-5.0);
  // Three seconds pass, yet the wall clock reads 2004 ms before the last accepted event.
  EXPECT_EQ(emitAt({3000}), std::vector<bool>{false});
  // 1000 ms after it by the wall clock: a new run.
  EXPECT_EQ(emitAt({6004}), std::vector<bool>{true});
  EXPECT_EQ(_lastUpdated.load(), originMs() + 1004);
  // Within a run an accepted event takes the clock's value even when it went back.
  sim().stepWallClock(-5.0);
  EXPECT_EQ(emitAt({6100}), std::vector<bool>{true});
  EXPECT_EQ(std::pair(_eventsSinceLastUpdate.load(), _lastUpdated.load()), std::pair(2, originMs() - 3900));
}

TEST_F(RateLimit, DroppedEmptyOrUnconfiguredEventsTouchNothing) {
  sdk().emitInputEvent({});  // no count word, no record
  EXPECT_EQ(_lastUpdated.load(), 0);
  EXPECT_TRUE(sim().logLines().empty());

  _lastUpdated = originMs();
  _eventsSinceLastUpdate = 5;
  sdk().emitInputEvent({1, 0});
  EXPECT_EQ(std::tuple(std::filesystem::exists(inputEventPath()), _firstWriteToInputEventFile.load(),
                       _hasUpdatedInputEvents.load()),
            std::tuple(false, true, false));

  _recordingStartedAt = -1;
  _eventsSinceLastUpdate = 0;
  sdk().emitInputEvent({1, 0});
  EXPECT_EQ(sim().logLines(), std::vector<std::string>{"SDK > inputEvents not configured"});
  EXPECT_EQ(std::pair(_eventsSinceLastUpdate.load(), _lastUpdated.load()), std::pair(0, originMs()));
}

}  // namespace
}  // namespace tavrel::testing
