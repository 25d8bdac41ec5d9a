// Placeholders until event recording lands: they keep the library linkable.
#include <tavrel_sdk/tavrel_sdk.hpp>

namespace tavrel {

void TavrelSDK::initialiseEventsWithGameEventUrl(const std::optional<std::string>& gameEventUrl,
                                                 const std::optional<std::string>& inputEventUrl,
                                                 std::int64_t recordingStart) {
  _gameEventUrl.set(gameEventUrl);
  _inputEventUrl.set(inputEventUrl);
  _recordingStartedAt.store(recordingStart);
}
void TavrelSDK::initEvents() {}
void TavrelSDK::emitGameEvent(const std::optional<std::string>&, const std::optional<std::string>&) {}
void TavrelSDK::emitInputEvent(const std::vector<std::int32_t>&) {}
void TavrelSDK::processEvents(const void*) {}
void TavrelSDK::uploadFileToUrl(const std::optional<std::string>&, const std::optional<std::string>&, std::int32_t,
                                Completion callback) {
  if (callback) callback(false);
}

}  // namespace tavrel
