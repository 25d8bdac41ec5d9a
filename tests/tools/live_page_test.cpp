// The live page of `tavrel serve` in a real browser (Chromium, headless) after a scripted session
// has played against that service: its requests with their outcome, its recordings decoded
// (the game events' table, the touches' plot as a picture), and no secret anywhere in it.

#include <tavrel_sdk/ui/image.hpp>

#include "support/sandbox.hpp"
#include "support/serve_process.hpp"
#include "support/tool_runner.hpp"

#include <cairo.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace tavrel::testing {
namespace {

const std::string kValid = "valid-token-000000000000player-ann-0000000000001";
const std::string kRefused = "refused-token-0000000000player-ann-0000000000001";

std::string chromium() {
  for (const char* name : {"chromium", "chromium-browser"}) {
    const std::string found = runProgram("sh", {"-c", std::string("command -v ") + name}).out;
    if (!found.empty()) return found.substr(0, found.find('\n'));
  }
  return {};
}

TEST(LivePage, ShowsWhatAScriptedSessionSentAndNoSecret) {
  if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "Chromium is not installed (scripts/setup installs it)";
  TemporaryDirectory directory;
  ServeProcess serve({"--token", kValid, "--refuse-token", kRefused, "--user", "ann:secret"});
  const std::string page = serve.banner["page"];
  ASSERT_EQ(page, serve.banner["base-url"] + "/");

  const std::string script = directory.path() + "/x.session";
  std::ofstream(script) << "screen 390x844 @1\ngame plain\n"
                        << "launch token=" << kRefused << " game-events=/s1/g.evt input-events=/s1/i.evt\n"
                        << "initialise-overlay " << kRefused << R"(
show-touches
validate
wait-until presented LoginViewController timeout 5
tap "Tavrel username"
type ann
tap "Password"
type wrong
tap "Login"
wait-until presented UIAlertController timeout 5
tap "OK"
wait-until not presented UIAlertController
tap "wrong"
backspace 5
type secret
tap "Login"
wait-until not presented LoginViewController timeout 5
game-event level-start first-level
down 1 60,200
move 1 330,700 over 1.5
wait 1.5
up 1
game-event level-end
wait 31
)";
  // A setting of its own would not reach the other service: refused at its line.
  ToolRun run = runTool({"run", script, "--service", serve.banner["base-url"]});
  EXPECT_EQ(run.status, 2);
  run = runTool({"run", script, "--out", directory.path() + "/out", "--no-frames", "--service",
                 serve.banner["base-url"], "--ca-file", serve.banner["ca-file"]});
  ASSERT_EQ(run.status, 0) << run.err << run.out;
  // The run saw none of the requests: it says so, not zeros.
  EXPECT_NE(readFile(directory.path() + "/out/report.txt")
                .find("service        " + serve.banner["base-url"] + ", another service: its requests are not counted"),
            std::string::npos);

  // The page arrives with what the service has seen and its picture loads with it, so the DOM
  // and the screenshot taken once it has loaded hold both. No virtual time: the open stream
  // would hold it still. A time-out guards against a browser that never ends.
  std::vector<std::string> flags{"60", browser, "--headless=new", "--ignore-certificate-errors", "--disable-gpu",
                                 "--user-data-dir=" + directory.path() + "/profile"};
  if (::geteuid() == 0) flags.push_back("--no-sandbox");
  // The plot's address is set by the page's script, which a loaded machine may not have run when
  // the DOM is dumped: asked again until it has.
  std::vector<std::string> dump = flags;
  dump.insert(dump.end(), {"--dump-dom", page});
  ToolRun dom;
  for (int attempt = 0; attempt < 5 && dom.out.find("/page/plot.png?id=") == std::string::npos; ++attempt) {
    dom = runProgram("timeout", dump);
    ASSERT_EQ(dom.status, 0) << dom.err;
  }
  for (const char* text : {"token check", "refused", "login", "unknown user or password", "logged in", "upload",
                           "/s1/g.evt", "/s1/i.evt", "level-start", "first-level", "level-end"}) {
    EXPECT_NE(dom.out.find(text), std::string::npos) << text << "\n" << dom.out;
  }
  EXPECT_NE(dom.out.find("/page/plot.png?id="), std::string::npos);
  for (const std::string& secret : {kValid, kRefused, std::string("secret"), std::string("wrong")}) {
    EXPECT_EQ(dom.out.find(secret), std::string::npos) << secret;
  }

  // The picture: the plot's first finger is drawn in its colour, in the page. The page sets the
  // plot's source from its script, so a loaded machine may shoot before the picture came: the
  // browser is asked again a few times.
  const std::string png = directory.path() + "/page.png";
  std::vector<std::string> shot = flags;
  shot.insert(shot.end(), {"--window-size=1400,1000", "--screenshot=" + png, page});
  int track = 0;
  for (int attempt = 0; attempt < 5 && track <= 20; ++attempt) {
    ASSERT_EQ(runProgram("timeout", shot).status, 0);
    const auto picture = UIImage::imageWithData(readFile(png));
    ASSERT_NE(picture, nullptr);
    cairo_surface_t* pixels = picture->surface();
    cairo_surface_flush(pixels);
    const unsigned char* data = cairo_image_surface_get_data(pixels);
    const int stride = cairo_image_surface_get_stride(pixels);
    track = 0;
    for (int y = 0; y < picture->pixelHeight(); ++y) {
      for (int x = 0; x < picture->pixelWidth(); ++x) {
        const auto pixel = *reinterpret_cast<const std::uint32_t*>(data + y * stride + x * 4);
        const int r = (pixel >> 16) & 255, g = (pixel >> 8) & 255, b = pixel & 255;
        track += std::abs(r - 79) < 16 && std::abs(g - 158) < 16 && b > 230;
      }
    }
  }
  EXPECT_GT(track, 20) << "no track of finger 0 in " << png;
}

// Each page holds a slot of the server's while its stream is open; one that goes frees it at once,
// not when a heartbeat written seconds later fails.
TEST(LivePage, AClosedPageFreesItsSlotAtOnce) {
  if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  ServeProcess serve({});
  const std::vector<std::string> stream{"-sS", "-o", "/dev/null", "-w", "%{http_code}", "--cacert",
                                        serve.banner["ca-file"], serve.banner["base-url"] + "/page/events"};
  const auto answer = [&](const char* seconds) {
    std::vector<std::string> arguments = stream;
    arguments.insert(arguments.begin(), {"--max-time", seconds});
    return runProgram("curl", arguments).out;
  };
  std::vector<std::FILE*> pages;
  std::vector<std::string> pids;
  for (int i = 0; i < 4; ++i) {
    std::string command = "echo $$; exec curl -sS -N --cacert '" + serve.banner["ca-file"] + "' '" +
                          serve.banner["base-url"] + "/page/events'";
    pages.push_back(::popen(command.c_str(), "r"));
    char line[256];
    ASSERT_NE(std::fgets(line, sizeof line, pages.back()), nullptr);  // its process id
    pids.push_back(std::string(line, std::strcspn(line, "\n")));
    ASSERT_NE(std::fgets(line, sizeof line, pages.back()), nullptr);  // the stream has begun
  }
  EXPECT_EQ(answer("3"), "503") << "a fifth page while four are open";
  for (const std::string& pid : pids) ::kill(std::stoi(pid), SIGKILL);
  for (std::FILE* page : pages) ::pclose(page);
  // Well before a heartbeat (5 s after a stream began) could fail, however slow each try is.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  std::string status;
  while (status != "200" && std::chrono::steady_clock::now() < deadline) status = answer("0.5");
  EXPECT_EQ(status, "200");
}

}  // namespace
}  // namespace tavrel::testing
