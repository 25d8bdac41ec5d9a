#include <tavrel_sdk/tavrel_sdk.hpp>

#include "recording/event_log.hpp"

#include <mutex>

namespace tavrel {

void TavrelSDK::initialiseEventsWithGameEventUrl(const std::optional<std::string>& gameEventUrl,
                                                 const std::optional<std::string>& inputEventUrl,
                                                 std::int64_t recordingStart) {
  {
    recording::EventLog& game = recording::gameEventLog();
    recording::EventLog& input = recording::inputEventLog();
    std::scoped_lock lock(game.naming, input.naming);
    _gameEventUrl.set(gameEventUrl);
    _inputEventUrl.set(inputEventUrl);
    _recordingStartedAt.store(recordingStart, std::memory_order_release);
    // A recording set up again starts new files, each with its own header or magic.
    for (recording::EventLog* log : {&game, &input}) {
      if (!log->url.isEmpty()) recording::startNewFile(*log);
    }
  }
  initEvents();
}

void TavrelSDK::initEvents() {
  // Two launch URLs handled on two threads at once still start one worker.
  static std::mutex starting;
  std::lock_guard lock(starting);
  if (_startedEventThread.load()) return;
  if (_gameEventUrl.isEmpty() && _inputEventUrl.isEmpty()) return;
  Platform::current().detachThread([] { TavrelSDK::sharedInstance().processEvents(nullptr); });
  _startedEventThread.store(true);
}

}  // namespace tavrel
