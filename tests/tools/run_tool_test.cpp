#include <tavrel_sdk/ui/image.hpp>

#include "support/tool_runner.hpp"
#include "support/window_session.hpp"

#include <nlohmann/json.hpp>

#include <cairo.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>

namespace tavrel::testing {
namespace {

const std::string kValid = "valid-token-000000000000player-ann-0000000000001";
const std::string kRefused = "refused-token-0000000000player-ann-0000000000001";

// The service knows both tokens and one player; the game sets up the overlay and validates.
const std::string kGame = "game plain\nservice token " + kValid + "\nservice refuse-token " + kRefused +
                          "\nservice user ann secret\n";

// A refused token: the page, a wrong password and its alert, then the right one.
const std::string kRefusedThenLogIn = "initialise-overlay " + kRefused + R"(
show-touches
validate
wait-until presented LoginViewController timeout 5
tap "Tavrel username"
type ann
tap "Password"
type wrong
tap "Login"
wait-until presented UIAlertController timeout 5
check text "Invalid username or password!"
tap "OK"
wait-until not presented UIAlertController
check presented LoginViewController
tap "wrong"
backspace 5
type secret
tap "Login"
wait-until not presented LoginViewController timeout 5
)";

class RunTool : public ToolTest {
 protected:
  ToolRun run(const std::string& text, std::vector<std::string> extra = {}) {
    std::vector<std::string> arguments{"run", write("x.session", text), "--out", out()};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return runTool(arguments);
  }
  std::string out() const { return directory_.path() + "/out"; }
  nlohmann::json report() const { return nlohmann::json::parse(readFile(out() + "/report.json")); }
  bool toldThat(const std::string& text) const {
    const nlohmann::json story = report()["story"];
    return std::any_of(story.begin(), story.end(), [&](const nlohmann::json& entry) { return entry["text"] == text; });
  }
};

TEST_F(RunTool, ScriptFaultsAndFailedChecksNameTheirLine) {
  const std::vector<std::string> noFrames{"--no-frames"};
  const std::vector<std::string> otherService{"--service", "https://127.0.0.1:9", "--ca-file", "/nonexistent.pem"};
  const struct {
    std::string script;
    int status;
    const char* message;
    std::vector<std::string> extra = {};
  } cases[] = {
      {"validate\n\nfly 3\n", 2, "x.session:3: unknown command 'fly'"},
      {"# waits\nwait 2,5\n", 2, "x.session:2: wait: expected a duration, got '2,5'"},
      {"wait 1:75\n", 2, "x.session:1: wait: a duration out of range: 75"},
      {"wait 1:\n", 2, "x.session:1: wait: expected a duration, got '1:'"},
      {"down 1 5,5\nmove 1 9,9\n", 2, "x.session:2: move: expected 'over SECONDS' after the points"},
      {"repeat 100000\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nend\n"
       "repeat 100000\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nend\n",
       2, "x.session:16: end: more than 1000000 steps"},
      {"validate\nscreen 390x844\n", 2, "x.session:2: screen: a setting comes before the first action"},
      {"tap \"Login\n", 2, "x.session:1: a quoted text has no closing \""},
      {"check game-events >= many\n", 2, "x.session:1: check: expected a count, got 'many'"},
      {"wait-until presented Dialog\n", 2, "x.session:1: wait-until: expected LoginViewController, UIAlertController or any"},
      {"repeat 2\nsnapshot a\nend\n", 2, "x.session:2: snapshot: a repeated snapshot would repeat its name"},
      {"repeat 1\nwait 1\n", 2, "x.session:1: repeat: no end"},
      {"check not log \"\"\n", 2, "x.session:1: check: expected a text, got an empty one"},  // would always hold
      {"url-schemes\nvalidate\n", 2, "x.session:1: url-schemes: expected a URL scheme"},
      // What a script asks of the clock is bounded, before anything runs.
      {"wait 7201\n", 2, "x.session:1: wait: a duration longer than a session may run (120:00.0): 7201"},
      {"down 1 5,5\nmove 1 9,9 over 1e6\n", 2, "x.session:2: move: a duration longer than a session may run"},
      {"validate\nrepeat 1000\nwait-until exit 255 timeout 8\nend\n", 2, "x.session:3: the session could run past 120:00.0"},
      // Run errors: the script reads well but cannot be played.
      {"wait 5\nat 0:02\n", 2, "x.session:2: the session is already at 0:05.0"},
      {"up 3\n", 2, "x.session:1: finger 3 is not down"},
      {"launch token=short\n", 2, "x.session:1: cannot compose the launch URL: the token has 5 characters"},
      // Set-up errors name the setting that asked for them; no other service is there, none is reached.
      {"seed 2\nservice token t\n\nvalidate\n", 2, "x.session:2: service: set by the other service's own options",
       otherService},
      {"validate\n", 2, "--service and --ca-file go together", {"--service", "https://127.0.0.1:9"}},
      // Failed checks: status 1, with what was there instead.
      {kGame + "initialise-overlay " + kValid + "\nvalidate\nwait 1\ncheck presented LoginViewController\n", 1,
       "x.session:8: check presented LoginViewController failed; nothing is presented"},
      {"game plain\ntap \"Login\"\n", 1, "x.session:2: nothing on the screen shows \"Login\""},
      {kGame + "wait-until text \"Login\" timeout 0.5\n", 1,
       "x.session:5: wait-until text \"Login\": not after 0:00.5; no text on the screen"},
      // A text counts where a tap could reach it: not on a page still sliding in, not under the page.
      {"game animated\nservice refuse-token " + kRefused + "\ninitialise-overlay " + kRefused +
           "\nwait 0.1\ncheck text \"Score 0\"\nvalidate\nwait-until text \"Login\"\ntap \"Login\"\n"
           "check text \"Score 0\"\n",
       1, "x.session:9: check text \"Score 0\" failed"},
      // The log's time stamps are not what the SDK said; a status is a number, however it is written.
      {"launch token=" + kValid + " game-events=/g.evt\ngame-event start\nwait 31\ncheck not log \"[0:30\"\n"
                                  "check uploads 0200 = 0\n",
       1, "x.session:5: check uploads 200 = 0 failed", noFrames},
  };
  for (const auto& c : cases) {
    const ToolRun result = run(c.script, c.extra);
    EXPECT_EQ(result.status, c.status) << c.script;
    EXPECT_NE(result.err.find(c.message), std::string::npos) << c.script << "\n" << result.err;
  }
  EXPECT_EQ(report()["exitStatus"], 1) << "a failed check still writes its report";

  // Neither a file nor a folder of someone else's (its snapshots/ would be deleted) is an output.
  const std::string notAFolder = write("a-file", "not a folder");
  const std::string someoneElses = directory_.path() + "/home";
  std::filesystem::create_directories(someoneElses + "/snapshots");
  write("home/notes.txt", "mine");
  for (const std::string& out : {notAFolder, someoneElses}) {
    const ToolRun result = runTool({"run", directory_.path() + "/x.session", "--out", out});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("--out"), std::string::npos) << result.err;
  }
  EXPECT_TRUE(std::filesystem::exists(someoneElses + "/snapshots"));
}

TEST_F(RunTool, AValidTokenBringsNoPage) {
  const ToolRun result = run(kGame + "service delay 0\nlaunch token=" + kValid +
                             " game-events=/g.evt input-events=/i.evt\ngame-event start\ninitialise-overlay " + kValid +
                             "\nvalidate\nwait 2\ncheck not presented any\nwait-until uploads 200 = 1 timeout 59\n");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("uploads        1 PUT request: 1 x 200;"), std::string::npos) << result.out;
  EXPECT_TRUE(toldThat("the game hears yes on a background queue"));
  // The input event file is named by the launch URL, but no touch ever created it.
  EXPECT_NE(result.out.find("0 handed to the SDK, none written; no event created documents/"), std::string::npos)
      << result.out;
  EXPECT_FALSE(report()["files"][1]["created"]);
}

// On the real clock the exit is real: the report and the log are written on the way out.
TEST_F(RunTool, TheExitAlertsOkEndsARealtimeRunWithStatus255) {
  const ToolRun result = run(kGame + "initialise-overlay " + kValid + R"(
check exit none
terminate-with-popup
wait-until presented UIAlertController timeout 2
check text "Please start your gameplay session through the Tavrel iOS app!"
tap "OK"
wait 1
check exit 255
)",
                             {"--realtime", "--no-frames"});
  EXPECT_EQ(result.status, 255) << result.err;
  EXPECT_EQ(report()["exitRecorded"], 255);
  EXPECT_NE(report()["failure"].get<std::string>().find(": the game ended the process with exit(255)"),
            std::string::npos)
      << report()["failure"];
  EXPECT_TRUE(std::filesystem::exists(out() + "/sdk.log"));
}

TEST_F(RunTool, TheDemoReportsItsWholeSession) {
  const ToolRun result = runTool({"demo", "--out", out()});
  ASSERT_EQ(result.status, 0) << result.err << result.out;
  const nlohmann::json r = report();
  EXPECT_EQ(std::tuple(r["sessionSeconds"], r["frames"], r["uploads"]["500"], r["exitRecorded"]),
            std::tuple(720.0, 720 * 60, 1, 255));
  EXPECT_GE(r["uploads"]["200"], 38);
  for (const auto& file : r["files"]) {
    EXPECT_TRUE(file["wellFormed"] == true && file["sameAsLastUpload"] == true && file["written"] > 0) << file;
  }
  EXPECT_GT(r["files"][1]["dropped"], 0) << "three fingers at 60 Hz meet the rate limit";
  EXPECT_TRUE(toldThat("the login page goes without animation"));
  // How many connections the library opens depends on the wall clock: an idle one closes after 5 s.
  int requests = r["validateRequests"].get<int>() + r["loginRequests"].get<int>();
  for (const auto& [status, count] : r["uploads"].items()) requests += count.get<int>();
  EXPECT_EQ(r["requests"], requests);
  EXPECT_LT(r["connections"], requests / 3);
  EXPECT_NE(result.out.find(std::to_string(requests) + " requests over "), std::string::npos) << result.out;
  // Seven snapshots of 390 x 844 points at scale 2, and a sheet of them in two rows of five.
  ASSERT_EQ(r["snapshots"].size(), 7u);
  const auto playing = UIImage::imageWithData(readFile(out() + "/snapshots/playing.png"));
  const auto sheet = UIImage::imageWithData(readFile(out() + "/contact-sheet.png"));
  ASSERT_TRUE(playing && sheet);
  EXPECT_EQ(std::pair(playing->pixelWidth(), playing->pixelHeight()), std::pair(780, 1688));
  EXPECT_EQ(std::pair(sheet->pixelWidth(), sheet->pixelHeight()),
            std::pair(20 + 5 * 260, 76 + 2 * (static_cast<int>(std::round(240 * 1688 / 780.0)) + 44 + 20) + 768 + 20));
  EXPECT_TRUE(nlohmann::json::parse(readFile(out() + "/snapshots/playing.json")).is_object());
}

std::string chromium() {
  const std::string found = runProgram("sh", {"-c", "command -v chromium || command -v chromium-browser"}).out;
  return found.substr(0, found.find('\n'));
}

int firstFingerPixels(const std::string& png) {
  Shot shot;
  if (!shot.load(png)) return 0;
  return shot.count([](std::uint32_t rgb) {
    return std::abs(static_cast<int>(rgb >> 16) - 79) < 16 && std::abs(static_cast<int>(rgb >> 8 & 255) - 158) < 16 &&
           (rgb & 255) > 230;
  });
}

TEST_F(RunTool, ARefusedTokenThenALoginAndTheLivePageShowsWhatTheSessionSentAndNoSecret) {
  ServeProcess serve({"--token", kValid, "--refuse-token", kRefused, "--user", "ann:secret"});
  const std::string page = serve.banner["page"];
  ASSERT_EQ(page, serve.banner["base-url"] + "/");
  const ToolRun result = run("screen 390x844 @1\ngame plain\nlaunch token=" + kRefused +
                                 " game-events=/s1/g.evt input-events=/s1/i.evt\n" + kRefusedThenLogIn + R"(
game-event level-start first-level
down 1 60,200
move 1 330,700 over 1.5
wait 1.5
up 1
game-event level-end
wait 31
)",
                             {"--no-frames", "--service", serve.banner["base-url"], "--ca-file", serve.banner["ca-file"]});
  ASSERT_EQ(result.status, 0) << result.err << result.out;
  EXPECT_EQ(report()["checksPassed"], 2);
  EXPECT_TRUE(toldThat("the game hears yes on the main thread"));
  EXPECT_TRUE(toldThat("the login page goes")) << "an accepted login slides the page away";
  // The run saw none of the requests: it says so, not zeros.
  EXPECT_NE(readFile(out() + "/report.txt")
                .find("service        " + serve.banner["base-url"] + ", another service: its requests are not counted"),
            std::string::npos);
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "Chromium is not installed (scripts/setup installs it)";

  // Real time: the open stream would hold virtual time still. The page asks for its plot once
  // loaded, which a loaded machine may not have done by the dump or the shot: asked again.
  std::vector<std::string> flags{"60", browser, "--headless=new", "--ignore-certificate-errors", "--disable-gpu",
                                 "--user-data-dir=" + directory_.path() + "/profile"};
  if (::geteuid() == 0) flags.push_back("--no-sandbox");
  const auto browse = [&](std::vector<std::string> what) {
    what.insert(what.begin(), flags.begin(), flags.end());
    what.push_back(page);
    return runProgram("timeout", what);
  };
  ToolRun dom;
  for (int attempt = 0; attempt < 5 && dom.out.find("/page/plot.png?id=") == std::string::npos; ++attempt) {
    dom = browse({"--dump-dom"});
    ASSERT_EQ(dom.status, 0) << dom.err;
  }
  for (const char* text : {"token check", "refused", "login", "unknown user or password", "logged in", "upload",
                           "/s1/g.evt", "/s1/i.evt", "level-start", "first-level", "level-end", "/page/plot.png?id="}) {
    EXPECT_NE(dom.out.find(text), std::string::npos) << text << "\n" << dom.out;
  }
  for (const std::string& secret : {kValid, kRefused, std::string("secret"), std::string("wrong")}) {
    EXPECT_EQ(dom.out.find(secret), std::string::npos) << secret;
  }
  const std::string png = directory_.path() + "/page.png";
  int track = 0;
  for (int attempt = 0; attempt < 5 && track <= 20; ++attempt) {
    ASSERT_EQ(browse({"--window-size=1400,1000", "--screenshot=" + png}).status, 0);
    track = firstFingerPixels(png);
  }
  EXPECT_GT(track, 20) << "no track of finger 0 in " << png;
}

// At once, not when a heartbeat written seconds later fails.
TEST_F(RunTool, AClosedLivePageFreesItsSlotAtOnce) {
  ServeProcess serve({});
  const auto answer = [&](const char* seconds) {
    return runProgram("curl", {"--max-time", seconds, "-sS", "-o", "/dev/null", "-w", "%{http_code}", "--cacert",
                               serve.banner["ca-file"], serve.banner["base-url"] + "/page/events"})
        .out;
  };
  std::vector<std::unique_ptr<ChildProcess>> pages;
  for (int i = 0; i < 4; ++i) {
    pages.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{
        "curl", "-sS", "-N", "--cacert", serve.banner["ca-file"], serve.banner["base-url"] + "/page/events"}));
    ASSERT_FALSE(pages.back()->readLine().empty());  // the stream has begun
  }
  EXPECT_EQ(answer("3"), "503") << "a fifth page while four are open";
  pages.clear();
  // Well before a heartbeat (5 s after a stream began) could fail, however slow each try is.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  std::string status;
  while (status != "200" && std::chrono::steady_clock::now() < deadline) status = answer("0.5");
  EXPECT_EQ(status, "200");
}

}  // namespace
}  // namespace tavrel::testing
