#pragma once

// Everything a host game calls: the TavrelSDK singleton, the session globals and the platform seam.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/session_globals.hpp>
#include <tavrel_sdk/version.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {

// The game's one entry point, a process-wide singleton that is never destroyed.
// Thread use: setAuthToken, processUrlRequest, validate, emitGameEvent and emitInputEvent may be
// called from any thread; getTimestamp, getUserId and sharedInstance too.
class TAVREL_EXPORT TavrelSDK {
 public:
  static TavrelSDK& sharedInstance();

  TavrelSDK(const TavrelSDK&) = delete;
  TavrelSDK& operator=(const TavrelSDK&) = delete;

  // --- Session ---------------------------------------------------------------------------------
  // A token of 48 UTF-16 units or more is kept, and its units 24 to 47 become the user id;
  // anything shorter, or null, clears the token and puts the user id back to "no-user-id".
  void setAuthToken(const std::optional<std::string>& token);
  // The current local time as "yyyy:MM:dd'T'HH:mm:ssXXX", e.g. 2026:03:09T14:05:33+01:00.
  static std::string getTimestamp();
  static std::string getUserId();

  // --- Launch ----------------------------------------------------------------------------------
  // Handles a launch URL of the form scheme://validate?launchToken=...&gameEventUrl=...
  // A URL for another host, or outside the format, is ignored as a whole.
  void processUrlRequest(const std::string& url);
  // The items of a query that has had its separators rewritten and been decoded once.
  // Keys and values are decoded a second time; "+" in a value becomes "%2B".
  // Empty for a null query. Throws std::invalid_argument for an item with no "=" or one whose
  // key or value fails the second decoding (processUrlRequest ignores such a URL).
  static std::map<std::string, std::string> parseQueryString(const std::optional<std::string>& query);

  // --- Validation --------------------------------------------------------------------------------
  void validate(Completion completion);

  // --- Recording -------------------------------------------------------------------------------
  void initialiseEventsWithGameEventUrl(const std::optional<std::string>& gameEventUrl,
                                        const std::optional<std::string>& inputEventUrl,
                                        std::int64_t recordingStart);
  void initEvents();
  // Appends {"a": "<data>", "e": "<name>", "t": <ms>} to the game event file.
  void emitGameEvent(const std::optional<std::string>& data, const std::optional<std::string>& name);
  // Appends one record to the input event file; event[0] is the count of numbers after it.
  void emitInputEvent(const std::vector<std::int32_t>& event);
  // The upload worker's body; never returns.
  void processEvents(const void* unused);
  void uploadFileToUrl(const std::optional<std::string>& fileName, const std::optional<std::string>& url,
                       std::int32_t retries, Completion callback);

  // --- Ending ----------------------------------------------------------------------------------
  // exit(255), at once.
  void terminate();

 private:
  TavrelSDK() = default;
};

}  // namespace tavrel
