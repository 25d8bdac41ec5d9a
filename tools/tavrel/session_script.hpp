#pragma once

// Session scripts: a small line-based language that says what the setting of a session is, what
// the game and the player do and when, and what must be true at given moments. `tavrel run`
// plays them (session_runner.hpp); the README has the table of commands.
//
// One command a line; "#" starts a comment outside quotes; "..." quotes a text with spaces
// (\" and \\ inside). Times are seconds of the session's clock, or M:SS(.s). Setting commands
// (screen, url-schemes, service, seed, game) come before the first action. "repeat N" ... "end"
// plays the lines between N times; the copies keep their line numbers.
//
// Parsing is pure: no file, clock or screen is touched. Safe to call from any thread.

#include <tavrel_sdk/ui/geometry.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tavrel::cli {

// A fault of the script at a line: a syntax error when parsing, a run error when playing.
struct ScriptError : std::runtime_error {
  ScriptError(int line, const std::string& message) : std::runtime_error(message), line(line) {}
  int line;
};

// "= 3", ">= 1", "< 10": how a count is compared. A bare number means "=".
struct CountTest {
  enum class Op { Equal, AtLeast, AtMost, Above, Below };
  Op op = Op::Equal;
  std::int64_t value = 0;
  bool holds(std::int64_t count) const;
  std::string text() const;  // ">= 1"
};

// What a check or a wait-until looks at.
struct Condition {
  enum class Kind {
    // A controller of `subject`'s class is in the presentation chain, its presentation over;
    // "not presented" holds once it has gone entirely, its dismissal over.
    Presented,
    Text,         // an element on the screen shows `subject` (as a tap would find it)
    Log,          // a log line so far contains `subject`
    GameEvents,   // records in the game event file
    InputEvents,  // records in the input event file
    Uploads,      // PUTs the endpoint answered with `subject` ("200", "503", "dropped", "any")
    Exit,         // the exit status recorded; `count` holds it, `subject` is "none" for no exit
  };
  Kind kind = Kind::Presented;
  bool negated = false;  // "not ..."
  std::string subject;
  CountTest count;
  std::string text() const;  // as a script would write it
};

namespace step {
struct InitialiseOverlay { std::optional<std::string> token; };
struct ShowTouches {};
struct ShowWatermark {};
struct Validate {};
struct SetAuthToken { std::optional<std::string> token; };
// A launch URL composed of these parts and handed to processUrlRequest. Upload paths are on the
// in-process endpoint; the recording start defaults to the moment of the launch.
struct Launch {
  std::optional<std::string> token;
  std::optional<std::string> gameEventPath;
  std::optional<std::string> inputEventPath;
  std::optional<std::int64_t> recordingStartedAt;
};
struct GameEvent { std::string name; std::optional<std::string> data; };
struct TerminateWithPopup {};
struct FingerDown { int finger = 0; CGPoint at; };
// Moves at 60 Hz along the path's straight segments, starting where the finger is; the run goes
// on while it moves.
struct FingerMove { int finger = 0; std::vector<CGPoint> path; double seconds = 0; };
struct FingerUp { int finger = 0; bool cancelled = false; };
struct Tap { std::string text; };
struct Type { std::string text; };
struct Return {};
struct Backspace { int count = 1; };
struct Wait { double seconds = 0; };
struct At { double time = 0; };
struct WaitUntil { Condition condition; double timeout = 10; };
struct Check { Condition condition; };
struct Snapshot { std::string name; };
}  // namespace step

using Action = std::variant<step::InitialiseOverlay, step::ShowTouches, step::ShowWatermark, step::Validate,
                            step::SetAuthToken, step::Launch, step::GameEvent, step::TerminateWithPopup,
                            step::FingerDown, step::FingerMove, step::FingerUp, step::Tap, step::Type, step::Return,
                            step::Backspace, step::Wait, step::At, step::WaitUntil, step::Check, step::Snapshot>;

struct Step {
  int line = 0;
  std::string source;  // the line as written, trimmed
  Action action;
};

struct SessionSetting {
  CGSize screen{390, 844};
  double scale = 3;
  std::vector<std::string> urlSchemes{"tavreldemo"};
  // The mock service (endpoint/mock_service.hpp): tokens it says yes and no to, users it logs
  // in and refuses, seconds before each reply, and how many uploads it answers 500.
  std::set<std::string> validTokens;
  std::set<std::string> refusedTokens;
  std::set<std::pair<std::string, std::string>> users;
  std::set<std::string> refusedUsers;
  double replyDelay = 0;
  int failedUploads = 0;
  std::uint64_t seed = 1;
  bool animatedGame = false;  // the demo's animated scene under the overlay; else a plain view
  // The line of each setting command ("screen", "service", ...) as last given, for the errors
  // of setting the session up.
  std::map<std::string, int> lines;
};

// The longest session a script may ask for: its waits, times and time-outs add up to at most
// this (two hours of the session's clock, a few minutes of CPU in virtual time).
inline constexpr double kMaxSessionSeconds = 2 * 60 * 60;

struct SessionScript {
  SessionSetting setting;
  std::vector<Step> steps;
};

// Throws ScriptError with the line of the first fault.
SessionScript parseSessionScript(std::string_view text);

// "1:05.5" for 65.5 seconds.
std::string sessionTime(double seconds);

}  // namespace tavrel::cli
