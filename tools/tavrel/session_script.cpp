#include "session_script.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <set>

namespace tavrel::cli {
namespace {

struct Word {
  std::string text;
  bool quoted = false;
};

// Splits a line into words; "#" outside quotes ends it.
std::vector<Word> splitWords(std::string_view line, int number) {
  std::vector<Word> words;
  std::size_t i = 0;
  while (i < line.size()) {
    const char c = line[i];
    if (c == ' ' || c == '\t' || c == '\r') {
      ++i;
    } else if (c == '#') {
      break;
    } else if (c == '"') {
      Word word{"", true};
      for (++i;; ++i) {
        if (i >= line.size()) throw ScriptError(number, "a quoted text has no closing \"");
        if (line[i] == '"') break;
        if (line[i] == '\\') {
          if (i + 1 >= line.size() || (line[i + 1] != '"' && line[i + 1] != '\\')) {
            throw ScriptError(number, "only \\\" and \\\\ may follow a backslash in a quoted text");
          }
          ++i;
        }
        word.text += line[i];
      }
      ++i;
      if (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') {
        throw ScriptError(number, "a quoted text must be followed by a blank");
      }
      words.push_back(std::move(word));
    } else {
      const std::size_t start = i;
      while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
      words.push_back({std::string(line.substr(start, i - start)), false});
    }
  }
  return words;
}

bool isNumber(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

// The words of one command after its name, consumed left to right.
class Arguments {
 public:
  Arguments(std::vector<Word> words, int line, std::string command)
      : words_(std::move(words)), line_(line), command_(std::move(command)) {}

  [[noreturn]] void fail(const std::string& message) const { throw ScriptError(line_, command_ + ": " + message); }
  bool empty() const { return next_ >= words_.size(); }
  const Word* peek() const { return empty() ? nullptr : &words_[next_]; }
  bool peekIs(std::string_view keyword) const { return peek() && !peek()->quoted && peek()->text == keyword; }

  std::string text(const char* what) {
    if (empty()) fail("expected " + std::string(what));
    return words_[next_++].text;
  }
  // A text to look for: an empty one is found in every log line and on every empty label.
  std::string textToFind(const char* what) {
    std::string word = text(what);
    if (word.empty()) fail("expected " + std::string(what) + ", got an empty one");
    return word;
  }
  // A keyword of the language, never a quoted word.
  std::string keyword(const char* what) {
    if (empty() || words_[next_].quoted) fail("expected " + std::string(what));
    return words_[next_++].text;
  }
  double number(const char* what, double min, double max) {
    const std::string word = keyword(what);
    double value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(value)) {
      fail("expected " + std::string(what) + ", got '" + word + "'");
    }
    if (value < min || value > max) {
      fail(std::string(what) + " out of range: " + word);
    }
    return value;
  }
  std::int64_t integer(const char* what, std::int64_t min, std::int64_t max) {
    const std::string word = keyword(what);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) {
      fail("expected " + std::string(what) + ", got '" + word + "'");
    }
    if (value < min || value > max) fail(std::string(what) + " out of range: " + word);
    return value;
  }
  // Seconds, or M:SS with a fraction, up to the longest session.
  double time(const char* what) {
    const std::string word = keyword(what);
    const double seconds = anyTime(what, word);
    if (seconds > kMaxSessionSeconds) {
      fail(std::string(what) + " longer than a session may run (" + sessionTime(kMaxSessionSeconds) + "): " + word);
    }
    return seconds;
  }
  double anyTime(const char* what, const std::string& word) {
    const auto colon = word.find(':');
    Arguments parts({{word.substr(0, colon), false}}, line_, command_);
    if (colon == std::string::npos) return parts.number(what, 0, 1e7);
    // A part that is no number names the whole word: "got ''" says nothing of "1:".
    if (!isNumber(word.substr(0, colon)) || !isNumber(word.substr(colon + 1))) {
      fail("expected " + std::string(what) + ", got '" + word + "'");
    }
    Arguments seconds({{word.substr(colon + 1), false}}, line_, command_);
    const double minutes = parts.number(what, 0, 1e5);
    if (minutes != std::floor(minutes)) fail("expected " + std::string(what) + ", got '" + word + "'");
    return minutes * 60 + seconds.number(what, 0, 59.999999);
  }
  CGPoint point() {
    const std::string word = keyword("a point X,Y");
    const auto comma = word.find(',');
    if (comma == std::string::npos) fail("expected a point X,Y, got '" + word + "'");
    Arguments parts({{word.substr(0, comma), false}, {word.substr(comma + 1), false}}, line_, command_);
    const double x = parts.number("a point's X", -1e5, 1e5);
    return {x, parts.number("a point's Y", -1e5, 1e5)};
  }
  void end() const {
    if (!empty()) fail("unexpected '" + words_[next_].text + "'");
  }

 private:
  std::vector<Word> words_;
  std::size_t next_ = 0;
  int line_;
  std::string command_;
};

// A token argument: a text, or "none" for null.
std::optional<std::string> optionalToken(Arguments& args) {
  if (args.empty() || args.peekIs("none")) {
    if (!args.empty()) args.keyword("none");
    return std::nullopt;
  }
  return args.text("a token");
}

CountTest countTest(Arguments& args) {
  static const std::map<std::string, CountTest::Op> kOps{{"=", CountTest::Op::Equal},
                                                         {">=", CountTest::Op::AtLeast},
                                                         {"<=", CountTest::Op::AtMost},
                                                         {">", CountTest::Op::Above},
                                                         {"<", CountTest::Op::Below}};
  CountTest test;
  if (const Word* word = args.peek(); word && !word->quoted && kOps.count(word->text)) {
    test.op = kOps.at(args.keyword("a comparison"));
  }
  test.value = args.integer("a count", 0, INT64_MAX / 2);
  return test;
}

Condition condition(Arguments& args) {
  Condition c;
  if (args.peekIs("not")) {
    args.keyword("not");
    c.negated = true;
  }
  const std::string kind = args.keyword("a condition (presented, text, log, game-events, input-events, uploads, exit)");
  if (kind == "presented") {
    c.kind = Condition::Kind::Presented;
    c.subject = args.keyword("LoginViewController, UIAlertController or any");
    if (c.subject != "LoginViewController" && c.subject != "UIAlertController" && c.subject != "any") {
      args.fail("expected LoginViewController, UIAlertController or any, got '" + c.subject + "'");
    }
  } else if (kind == "text" || kind == "log") {
    c.kind = kind == "text" ? Condition::Kind::Text : Condition::Kind::Log;
    c.subject = args.textToFind("a text");
  } else if (kind == "game-events" || kind == "input-events") {
    if (c.negated) args.fail("'not' does not go with a count");
    c.kind = kind == "game-events" ? Condition::Kind::GameEvents : Condition::Kind::InputEvents;
    c.count = countTest(args);
  } else if (kind == "uploads") {
    if (c.negated) args.fail("'not' does not go with a count");
    c.kind = Condition::Kind::Uploads;
    c.subject = args.keyword("a status, dropped or any");
    if (c.subject != "dropped" && c.subject != "any") {
      Arguments status({{c.subject, false}}, 0, "");
      try {
        // Compared as text with the endpoint's statuses: "0200" must still mean 200.
        c.subject = std::to_string(status.integer("", 100, 599));
      } catch (const ScriptError&) {
        args.fail("expected an HTTP status, dropped or any, got '" + c.subject + "'");
      }
    }
    c.count = countTest(args);
  } else if (kind == "exit") {
    if (c.negated) args.fail("'not' does not go with exit");
    c.kind = Condition::Kind::Exit;
    if (args.peekIs("none")) {
      c.subject = args.keyword("none");
    } else {
      c.count.value = args.integer("an exit status", 0, 255);
    }
  } else {
    args.fail("unknown condition '" + kind + "'");
  }
  return c;
}

std::string checkedName(Arguments& args) {
  const std::string name = args.text("a name");
  if (name.empty() || name == "." || name == ".." ||
      name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-") != std::string::npos) {
    args.fail("a name may hold letters, digits, '.', '_' and '-' only");
  }
  return name;
}

std::string uploadPath(Arguments& args, const std::string& value) {
  if (value.empty() || value[0] != '/') args.fail("an upload path starts with '/', got '" + value + "'");
  return value;
}

step::Launch launch(Arguments& args) {
  step::Launch l;
  while (!args.empty()) {
    const std::string item = args.text("key=value");
    const auto equals = item.find('=');
    const std::string key = item.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : item.substr(equals + 1);
    if (equals == std::string::npos) args.fail("expected key=value, got '" + item + "'");
    if (key == "token") {
      l.token = value;
    } else if (key == "game-events") {
      l.gameEventPath = uploadPath(args, value);
    } else if (key == "input-events") {
      l.inputEventPath = uploadPath(args, value);
    } else if (key == "recording-started-at") {
      Arguments ms({{value, false}}, 0, "");
      try {
        l.recordingStartedAt = ms.integer("", 0, INT64_MAX / 2);
      } catch (const ScriptError&) {
        args.fail("recording-started-at: expected milliseconds since 1970, got '" + value + "'");
      }
    } else {
      args.fail("unknown part '" + key + "' (token, game-events, input-events, recording-started-at)");
    }
  }
  return l;
}

using ActionParser = std::function<Action(Arguments&)>;

const std::map<std::string, ActionParser>& actionParsers() {
  static const std::map<std::string, ActionParser> parsers{
      {"initialise-overlay", [](Arguments& a) -> Action { return step::InitialiseOverlay{optionalToken(a)}; }},
      {"show-touches", [](Arguments&) -> Action { return step::ShowTouches{}; }},
      {"show-watermark", [](Arguments&) -> Action { return step::ShowWatermark{}; }},
      {"validate", [](Arguments&) -> Action { return step::Validate{}; }},
      {"set-auth-token", [](Arguments& a) -> Action { return step::SetAuthToken{optionalToken(a)}; }},
      {"launch", [](Arguments& a) -> Action { return launch(a); }},
      {"game-event",
       [](Arguments& a) -> Action {
         step::GameEvent e{a.text("an event name"), std::nullopt};
         if (!a.empty()) e.data = a.text("event data");
         return e;
       }},
      {"terminate-with-popup", [](Arguments&) -> Action { return step::TerminateWithPopup{}; }},
      {"down",
       [](Arguments& a) -> Action {
         const auto finger = static_cast<int>(a.integer("a finger number", 0, 99));
         return step::FingerDown{finger, a.point()};
       }},
      {"move",
       [](Arguments& a) -> Action {
         step::FingerMove m;
         m.finger = static_cast<int>(a.integer("a finger number", 0, 99));
         while (!a.empty() && !a.peekIs("over")) m.path.push_back(a.point());
         if (m.path.empty()) a.fail("expected at least one point before 'over'");
         if (!a.peekIs("over")) a.fail("expected 'over SECONDS' after the points");
         a.keyword("over");
         m.seconds = a.time("a duration");
         return m;
       }},
      {"up", [](Arguments& a) -> Action { return step::FingerUp{static_cast<int>(a.integer("a finger number", 0, 99)), false}; }},
      {"cancel", [](Arguments& a) -> Action { return step::FingerUp{static_cast<int>(a.integer("a finger number", 0, 99)), true}; }},
      {"tap", [](Arguments& a) -> Action { return step::Tap{a.textToFind("the text of an element")}; }},
      {"type", [](Arguments& a) -> Action { return step::Type{a.text("a text")}; }},
      {"return", [](Arguments&) -> Action { return step::Return{}; }},
      {"backspace",
       [](Arguments& a) -> Action {
         return step::Backspace{a.empty() ? 1 : static_cast<int>(a.integer("a count", 1, 1000))};
       }},
      {"wait", [](Arguments& a) -> Action { return step::Wait{a.time("a duration")}; }},
      {"at", [](Arguments& a) -> Action { return step::At{a.time("a session time")}; }},
      {"wait-until",
       [](Arguments& a) -> Action {
         step::WaitUntil w{condition(a), 10};
         if (!a.empty()) {
           if (a.keyword("timeout") != "timeout") a.fail("expected 'timeout SECONDS' after the condition");
           w.timeout = a.time("a time-out");
         }
         return w;
       }},
      {"check", [](Arguments& a) -> Action { return step::Check{condition(a)}; }},
      {"snapshot", [](Arguments& a) -> Action { return step::Snapshot{checkedName(a)}; }},
  };
  return parsers;
}

// Returns false when `name` is no setting command.
bool parseSetting(const std::string& name, Arguments& args, SessionSetting& setting) {
  if (name == "screen") {
    const std::string size = args.keyword("WIDTHxHEIGHT");
    const auto x = size.find('x');
    if (x == std::string::npos) args.fail("expected WIDTHxHEIGHT, got '" + size + "'");
    Arguments parts({{size.substr(0, x), false}, {size.substr(x + 1), false}}, 0, "");
    try {
      setting.screen.width = static_cast<double>(parts.integer("", 100, 4000));
      setting.screen.height = static_cast<double>(parts.integer("", 100, 4000));
    } catch (const ScriptError&) {
      args.fail("expected WIDTHxHEIGHT in whole points from 100 to 4000, got '" + size + "'");
    }
    if (!args.empty()) {
      const std::string scale = args.keyword("@SCALE");
      Arguments number({{scale.substr(scale.empty() ? 0 : 1), false}}, 0, "");
      try {
        if (scale.empty() || scale[0] != '@') throw ScriptError(0, "");
        setting.scale = static_cast<double>(number.integer("", 1, 3));
      } catch (const ScriptError&) {
        args.fail("expected @1, @2 or @3, got '" + scale + "'");
      }
    }
  } else if (name == "url-schemes") {
    setting.urlSchemes = {args.text("a URL scheme")};
    while (!args.empty()) setting.urlSchemes.push_back(args.text("a URL scheme"));
  } else if (name == "seed") {
    setting.seed = static_cast<std::uint64_t>(args.integer("a seed", 0, INT64_MAX));
  } else if (name == "game") {
    const std::string kind = args.keyword("animated or plain");
    if (kind != "animated" && kind != "plain") args.fail("expected animated or plain, got '" + kind + "'");
    setting.animatedGame = kind == "animated";
  } else if (name == "service") {
    const std::string what = args.keyword("token, refuse-token, user, refuse-user, delay or fail-uploads");
    if (what == "token") {
      setting.validTokens.insert(args.text("a token"));
    } else if (what == "refuse-token") {
      setting.refusedTokens.insert(args.text("a token"));
    } else if (what == "user") {
      std::string user = args.text("a user name");
      setting.users.emplace(std::move(user), args.text("a password"));
    } else if (what == "refuse-user") {
      setting.refusedUsers.insert(args.text("a user name"));
    } else if (what == "delay") {
      setting.replyDelay = args.number("seconds", 0, 60);
    } else if (what == "fail-uploads") {
      setting.failedUploads = static_cast<int>(args.integer("a count", 1, 1000000));
    } else {
      args.fail("unknown service setting '" + what + "'");
    }
  } else {
    return false;
  }
  return true;
}

std::string trimmed(std::string_view line) {
  const auto first = line.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return std::string(line.substr(first, line.find_last_not_of(" \t\r") - first + 1));
}

}  // namespace

bool CountTest::holds(std::int64_t count) const {
  switch (op) {
    case Op::Equal: return count == value;
    case Op::AtLeast: return count >= value;
    case Op::AtMost: return count <= value;
    case Op::Above: return count > value;
    case Op::Below: return count < value;
  }
  return false;
}

std::string CountTest::text() const {
  static const char* const kNames[] = {"=", ">=", "<=", ">", "<"};
  return std::string(kNames[static_cast<int>(op)]) + " " + std::to_string(value);
}

std::string Condition::text() const {
  const std::string prefix = negated ? "not " : "";
  switch (kind) {
    case Kind::Presented: return prefix + "presented " + subject;
    case Kind::Text: return prefix + "text \"" + subject + "\"";
    case Kind::Log: return prefix + "log \"" + subject + "\"";
    case Kind::GameEvents: return "game-events " + count.text();
    case Kind::InputEvents: return "input-events " + count.text();
    case Kind::Uploads: return "uploads " + subject + " " + count.text();
    case Kind::Exit: return "exit " + (subject == "none" ? subject : std::to_string(count.value));
  }
  return {};
}

SessionScript parseSessionScript(std::string_view text) {
  SessionScript script;
  std::set<std::string> snapshotNames;
  struct Block {
    int line;
    std::int64_t count;
    std::size_t firstStep;
  };
  std::vector<Block> blocks;  // open repeat blocks, innermost last
  bool acting = false;        // an action or a block has come: no more settings
  int number = 0;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line = text.substr(start, end - start);
    start = end + 1;
    ++number;
    std::vector<Word> words = splitWords(line, number);
    if (words.empty()) continue;
    if (words[0].quoted) throw ScriptError(number, "a line starts with a command, not a quoted text");
    const std::string name = words[0].text;
    words.erase(words.begin());
    Arguments args(std::move(words), number, name);
    if (parseSetting(name, args, script.setting)) {
      if (acting) args.fail("a setting comes before the first action");
      args.end();
      script.setting.lines[name] = number;
      continue;
    }
    acting = true;
    if (name == "repeat") {
      blocks.push_back({number, args.integer("a count", 1, 100000), script.steps.size()});
      args.end();
      continue;
    }
    if (name == "end") {
      if (blocks.empty()) args.fail("no repeat to end");
      args.end();
      const Block block = blocks.back();
      blocks.pop_back();
      const std::vector<Step> body(script.steps.begin() + static_cast<std::ptrdiff_t>(block.firstStep), script.steps.end());
      for (const Step& step : body) {
        if (block.count > 1 && std::holds_alternative<step::Snapshot>(step.action)) {
          throw ScriptError(step.line, "snapshot: a repeated snapshot would repeat its name");
        }
      }
      // A step takes a few hundred bytes: the whole script, not each block, must fit in memory.
      constexpr std::size_t kMaxSteps = 1'000'000;
      if (script.steps.size() + body.size() * static_cast<std::size_t>(block.count - 1) > kMaxSteps) {
        args.fail("more than " + std::to_string(kMaxSteps) + " steps");
      }
      for (std::int64_t i = 1; i < block.count; ++i) script.steps.insert(script.steps.end(), body.begin(), body.end());
      continue;
    }
    const auto parser = actionParsers().find(name);
    if (parser == actionParsers().end()) throw ScriptError(number, "unknown command '" + name + "'");
    Step step{number, trimmed(line), parser->second(args)};
    args.end();
    if (const auto* snapshot = std::get_if<step::Snapshot>(&step.action)) {
      if (!snapshotNames.insert(snapshot->name).second) args.fail("a snapshot named '" + snapshot->name + "' comes earlier");
    }
    script.steps.push_back(std::move(step));
  }
  if (!blocks.empty()) throw ScriptError(blocks.back().line, "repeat: no end");
  // The latest the session can reach, step by step: a wait-until may take its whole time-out.
  double latest = 0;
  for (const Step& step : script.steps) {
    if (const auto* wait = std::get_if<step::Wait>(&step.action)) latest += wait->seconds;
    if (const auto* at = std::get_if<step::At>(&step.action)) latest = std::max(latest, at->time);
    if (const auto* until = std::get_if<step::WaitUntil>(&step.action)) latest += until->timeout;
    if (latest > kMaxSessionSeconds) {
      throw ScriptError(step.line, "the session could run past " + sessionTime(kMaxSessionSeconds) +
                                       " here (its waits and time-outs add up so far)");
    }
  }
  return script;
}

std::string sessionTime(double seconds) {
  char text[32];
  const double rounded = std::round(seconds * 10) / 10;
  const auto minutes = static_cast<long>(rounded / 60);
  std::snprintf(text, sizeof text, "%ld:%04.1f", minutes, rounded - static_cast<double>(minutes) * 60);
  return text;
}

}  // namespace tavrel::cli
