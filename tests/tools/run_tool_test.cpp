// tavrel run and tavrel demo, run as processes: the script language's errors with their lines
// and exit statuses, one short script per road through the login gate (each a test in itself:
// status 0 means every check in it held), and the demo's report.

#include <tavrel_sdk/ui/image.hpp>

#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace tavrel::testing {
namespace {

const std::string kValid = "valid-token-000000000000player-ann-0000000000001";
const std::string kRefused = "refused-token-0000000000player-ann-0000000000001";

// The service knows both tokens and one player; the game sets up the overlay and validates.
const std::string kGame = "game plain\nservice token " + kValid + "\nservice refuse-token " + kRefused +
                          "\nservice user ann secret\n";

class RunTool : public ::testing::Test {
 protected:
  void SetUp() override {
    if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }
  // Runs `text` as x.session; extra arguments follow.
  ToolRun run(const std::string& text, std::vector<std::string> extra = {}) {
    const std::string script = directory_.path() + "/x.session";
    std::ofstream(script) << text;
    std::vector<std::string> arguments{"run", script, "--out", out()};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return runTool(arguments);
  }
  std::string out() const { return directory_.path() + "/out"; }
  nlohmann::json report() const { return nlohmann::json::parse(readFile(out() + "/report.json")); }
  // The story's lines, as the report tells them.
  std::vector<std::string> story() const {
    const nlohmann::json whole = report();
    std::vector<std::string> lines;
    for (const auto& entry : whole["story"]) lines.push_back(entry["text"]);
    return lines;
  }
  bool toldThat(const std::string& text) const {
    const auto lines = story();
    return std::find(lines.begin(), lines.end(), text) != lines.end();
  }

  TemporaryDirectory directory_;
};

TEST_F(RunTool, ScriptFaultsNameTheirLineAndExitTwo) {
  const struct {
    const char* script;
    const char* message;
  } cases[] = {
      {"validate\n\nfly 3\n", "x.session:3: unknown command 'fly'"},
      {"# waits\nwait 2,5\n", "x.session:2: wait: expected a duration, got '2,5'"},
      {"wait 1:75\n", "x.session:1: wait: a duration out of range: 75"},
      {"wait 1:\n", "x.session:1: wait: expected a duration, got '1:'"},
      {"down 1 5,5\nmove 1 9,9\n", "x.session:2: move: expected 'over SECONDS' after the points"},
      {"repeat 100000\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nend\n"
       "repeat 100000\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nwait 0\nend\n",
       "x.session:16: end: more than 1000000 steps"},
      {"validate\nscreen 390x844\n", "x.session:2: screen: a setting comes before the first action"},
      {"tap \"Login\n", "x.session:1: a quoted text has no closing \""},
      {"check game-events >= many\n", "x.session:1: check: expected a count, got 'many'"},
      {"wait-until presented Dialog\n", "x.session:1: wait-until: expected LoginViewController, UIAlertController or any"},
      {"repeat 2\nsnapshot a\nend\n", "x.session:2: snapshot: a repeated snapshot would repeat its name"},
      {"repeat 2\nwait 1\n", "x.session:1: repeat: no end"},
      {"check not log \"\"\n", "x.session:1: check: expected a text, got an empty one"},  // would always hold
      {"url-schemes\nvalidate\n", "x.session:1: url-schemes: expected a URL scheme"},
      // What a script asks of the clock is bounded, before anything runs.
      {"wait 7201\n", "x.session:1: wait: a duration longer than a session may run (120:00.0): 7201"},
      {"down 1 5,5\nmove 1 9,9 over 1e6\n", "x.session:2: move: a duration longer than a session may run"},
      {"validate\nrepeat 1000\nwait-until exit 255 timeout 8\nend\n", "x.session:3: the session could run past 120:00.0"},
      // Run errors: the script reads well but cannot be played.
      {"wait 5\nat 0:02\n", "x.session:2: the session is already at 0:05.0"},
      {"up 3\n", "x.session:1: finger 3 is not down"},
      {"launch token=short\n", "x.session:1: cannot compose the launch URL: the token has 5 characters"},
      // Set-up errors name the setting that asked for them.
      {"seed 2\nservice token t\n\nvalidate\n", "x.session:2: service: set by the other service's own options"},
  };
  for (const auto& c : cases) {
    // The last case plays against another service; none is there, and none is reached.
    const bool other = std::string(c.message).find("other service") != std::string::npos;
    const ToolRun result =
        other ? run(c.script, {"--service", "https://127.0.0.1:9", "--ca-file", "/nonexistent.pem"}) : run(c.script);
    EXPECT_EQ(result.status, 2) << c.script;
    EXPECT_NE(result.err.find(c.message), std::string::npos) << c.script << "\n" << result.err;
  }

  // Neither a file nor a folder of someone else's (its snapshots/ would be deleted) is an output.
  const std::string notAFolder = directory_.path() + "/a-file";
  std::ofstream(notAFolder) << "not a folder";
  const std::string someoneElses = directory_.path() + "/home";
  std::filesystem::create_directories(someoneElses + "/snapshots");
  std::ofstream(someoneElses + "/notes.txt") << "mine";
  for (const std::string& out : {notAFolder, someoneElses}) {
    const ToolRun result = runTool({"run", directory_.path() + "/x.session", "--out", out});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("--out"), std::string::npos) << result.err;
  }
  EXPECT_TRUE(std::filesystem::exists(someoneElses + "/snapshots"));
}

TEST_F(RunTool, AFailedCheckExitsOneWithWhatWasThere) {
  ToolRun result = run(kGame + "initialise-overlay " + kValid + "\nvalidate\nwait 1\ncheck presented LoginViewController\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("x.session:8: check presented LoginViewController failed; nothing is presented"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(report()["exitStatus"], 1);

  result = run("game plain\ntap \"Login\"\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("x.session:2: nothing on the screen shows \"Login\""), std::string::npos) << result.err;

  result = run(kGame + "wait-until text \"Login\" timeout 0.5\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("x.session:5: wait-until text \"Login\": not after 0:00.5; no text on the screen"),
            std::string::npos)
      << result.err;

  // A text counts where a tap could reach it: not on a page still sliding in, not under the page.
  result = run("game animated\nservice refuse-token " + kRefused + "\ninitialise-overlay " + kRefused +
               "\nwait 0.1\ncheck text \"Score 0\"\nvalidate\nwait-until text \"Login\"\ntap \"Login\"\n"
               "check text \"Score 0\"\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("x.session:9: check text \"Score 0\" failed"), std::string::npos) << result.err;

  // The log's time stamps are not what the SDK said; a status is a number, however it is written.
  result = run("launch token=" + kValid +
                   " game-events=/g.evt\ngame-event start\nwait 31\ncheck not log \"[0:30\"\ncheck uploads 0200 = 0\n",
               {"--no-frames"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("x.session:5: check uploads 200 = 0 failed"), std::string::npos) << result.err;
}

const std::string kLogIn = R"(tap "Tavrel username"
type ann
tap "Password"
type secret
tap "Login"
wait-until not presented LoginViewController timeout 5
)";

TEST_F(RunTool, ARefusedTokenBringsThePageAndALoginLetsTheGameOn) {
  const ToolRun result = run(kGame + "initialise-overlay " + kRefused + R"(
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
)");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(report()["checksPassed"], 2);
  EXPECT_TRUE(toldThat("the game hears yes on the main thread"));
  EXPECT_TRUE(toldThat("the login page goes")) << "an accepted login slides the page away";
  EXPECT_EQ(report()["loginRequests"], 2);
}

TEST_F(RunTool, AValidTokenBringsNoPage) {
  const ToolRun result = run(kGame + "launch token=" + kValid + " input-events=/i.evt\ninitialise-overlay " + kValid +
                             "\nvalidate\nwait 2\ncheck not presented any\n");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(toldThat("the game hears yes on a background queue"));
  // The input event file is named by the launch URL, but no touch ever created it.
  EXPECT_NE(result.out.find("0 handed to the SDK, none written; no event created documents/"), std::string::npos)
      << result.out;
  EXPECT_FALSE(report()["files"][1]["created"]);
}

TEST_F(RunTool, TheRepeatPageComesSixHundredSecondsAfterALogin) {
  const ToolRun result = run(kGame + "initialise-overlay " + kRefused +
                                 "\nvalidate\nwait-until presented LoginViewController timeout 5\n" + kLogIn + R"(
wait 598
check not presented any
wait-until presented LoginViewController timeout 3
)",
                             {"--no-frames"});
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(RunTool, AValidLaunchUrlTakesThePageAwayWithoutAnimation) {
  const ToolRun result = run(kGame + "initialise-overlay " + kRefused + R"(
validate
wait-until presented LoginViewController timeout 5
launch token=)" + kValid + R"(
wait-until not presented LoginViewController timeout 5
wait 700
check not presented any # the page's own completion is lost: no timer
)",
                             {"--no-frames"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(toldThat("the login page goes without animation"));
  EXPECT_TRUE(toldThat("the game hears yes on a background queue"));
}

TEST_F(RunTool, TheExitAlertsOkIsRecordedAsExit255) {
  const ToolRun result = run(kGame + "initialise-overlay " + kValid + R"(
check exit none
terminate-with-popup
wait-until presented UIAlertController timeout 2
check text "Please start your gameplay session through the Tavrel iOS app!"
tap "OK"
wait 1
check exit 255
)");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(report()["exitRecorded"], 255);

  // On the real clock the exit is real: the report and the log are written on the way out.
  const ToolRun real = run(kGame + "initialise-overlay " + kValid + R"(
terminate-with-popup
wait-until presented UIAlertController timeout 2
tap "OK"
wait 1
check exit 255
)",
                           {"--realtime", "--no-frames"});
  EXPECT_EQ(real.status, 255) << real.err;
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
  EXPECT_EQ(r["sessionSeconds"], 720.0);
  EXPECT_EQ(r["frames"], 720 * 60);
  EXPECT_EQ(r["uploads"]["500"], 1);
  EXPECT_GE(r["uploads"]["200"], 38);
  EXPECT_EQ(r["exitRecorded"], 255);
  for (const auto& file : r["files"]) {
    EXPECT_TRUE(file["wellFormed"]) << file;
    EXPECT_TRUE(file["sameAsLastUpload"]) << file;
    EXPECT_GT(file["written"], 0) << file;
  }
  EXPECT_GT(r["files"][1]["dropped"], 0) << "three fingers at 60 Hz meet the rate limit";
  EXPECT_TRUE(toldThat("the login page goes without animation"));
  // The library keeps its connections, as against the real service (how many it opens depends
  // on the wall clock: an idle one closes after 5 s).
  int requests = r["validateRequests"].get<int>() + r["loginRequests"].get<int>();
  for (const auto& [status, count] : r["uploads"].items()) requests += count.get<int>();
  EXPECT_EQ(r["requests"], requests);
  EXPECT_LT(r["connections"], requests / 3);
  EXPECT_NE(result.out.find(std::to_string(requests) + " requests over "), std::string::npos) << result.out;
  // Seven snapshots of 390 x 844 points at scale 2, and a sheet of them in two rows of five.
  ASSERT_EQ(r["snapshots"].size(), 7u);
  const auto playing = UIImage::imageWithData(readFile(out() + "/snapshots/playing.png"));
  ASSERT_NE(playing, nullptr);
  EXPECT_EQ(playing->pixelWidth(), 780);
  EXPECT_EQ(playing->pixelHeight(), 1688);
  const auto sheet = UIImage::imageWithData(readFile(out() + "/contact-sheet.png"));
  ASSERT_NE(sheet, nullptr);
  EXPECT_EQ(sheet->pixelWidth(), 20 + 5 * 260);
  EXPECT_EQ(sheet->pixelHeight(), 76 + 2 * (std::round(240 * 1688 / 780.0) + 44 + 20) + 768 + 20)
      << "two rows of snapshots, then the plot";
  EXPECT_TRUE(nlohmann::json::parse(readFile(out() + "/snapshots/playing.json")).is_object());
}

}  // namespace
}  // namespace tavrel::testing
