#pragma once

// Everything a host game calls: the TavrelSDK singleton, the session globals and the platform seam.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/session_globals.hpp>
#include <tavrel_sdk/version.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {

class OverlayView;
class UIViewController;

// The game's one entry point, a process-wide singleton that is never destroyed.
// Thread use: setAuthToken, processUrlRequest, validate, emitGameEvent, emitInputEvent,
// showLoginPage, dismissLoginPage, terminate and terminateWithPopup may be called from any
// thread; getTimestamp, getUserId and sharedInstance too. The overlay's operations and
// isLoginPageVisible touch views: main thread only.
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

  // --- Overlay -----------------------------------------------------------------------------------
  // Stores the controller that hosts the overlay and presents the login page; null takes the
  // application's root view controller (shared application, delegate, window). Returns it.
  std::shared_ptr<UIViewController> setViewController(std::shared_ptr<UIViewController> viewController);
  // Makes the one overlay over the controller's view; a second call changes nothing.
  void showOverlay(std::shared_ptr<UIViewController> viewController);
  // setAuthToken, then showOverlay; a second call changes nothing, not even the token.
  void initialiseOverlay(std::shared_ptr<UIViewController> viewController, const std::optional<std::string>& token);
  // Switch the overlay's touch marks and watermark on; before the overlay exists, nothing.
  void showTouches();
  void showWatermark();

  std::shared_ptr<OverlayView> overlayView() const { return _overlayView; }
  void setOverlayView(std::shared_ptr<OverlayView> overlayView) { _overlayView = std::move(overlayView); }
  std::shared_ptr<UIViewController> parentViewController() const { return _parentViewController; }
  void setParentViewController(std::shared_ptr<UIViewController> controller) { _parentViewController = std::move(controller); }
  std::shared_ptr<Timer> timer() const { return _timer; }
  void setTimer(std::shared_ptr<Timer> timer) { _timer = std::move(timer); }

  // --- Validation --------------------------------------------------------------------------------
  // Asks the service about the token. A yes dismisses any login page and calls the completion
  // with true on the URL session's queue; anything else brings the login page.
  void validate(Completion completion);
  // Presents a login page over the parent controller, on the main queue. After an accepted
  // login it starts the 600-second re-login timer and calls the completion with true.
  void showLoginPage(Completion completion);
  // Takes a visible login page away without animation, on the main queue.
  void dismissLoginPage();
  bool isLoginPageVisible();
  void timerFired(Timer* timer);

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
  // An alert over the parent controller whose one "OK" button ends the process.
  void terminateWithPopup();

 private:
  TavrelSDK() = default;

  // Main thread only.
  std::shared_ptr<OverlayView> _overlayView;
  std::shared_ptr<UIViewController> _parentViewController;
  std::shared_ptr<Timer> _timer;
};

}  // namespace tavrel
