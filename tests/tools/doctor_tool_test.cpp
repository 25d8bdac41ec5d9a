// tavrel doctor as a process: each check that every game needs fails once on purpose and turns
// the exit status to 1; what only some games need (display, OpenGL, Vulkan, fallback fonts)
// warns and leaves it at 0.

#include "support/tool_runner.hpp"

#include "endpoint/https_server.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>


namespace tavrel::testing {
namespace {

class Doctor : public ToolTest {
 protected:
  // The checks' results by name, and the exit status.
  std::pair<int, nlohmann::json> doctor(std::vector<std::string> arguments, std::vector<std::string> environment = {}) {
    arguments.insert(arguments.begin(), "doctor");
    arguments.push_back("--json");
    environment.push_back("TAVREL_DOCUMENTS=" + directory_.path());
    const ToolRun run = runTool(arguments, environment);
    nlohmann::json byName = nlohmann::json::object();
    EXPECT_TRUE(nlohmann::json::accept(run.out)) << run.out << run.err;
    if (!nlohmann::json::accept(run.out)) return {run.status, byName};
    const nlohmann::json out = nlohmann::json::parse(run.out);
    for (const auto& check : out["checks"]) byName[check["check"].get<std::string>()] = check;
    return {run.status, byName};
  }
};

TEST_F(Doctor, AMachineWithWhatGamesNeedPasses) {
  endpoint::HttpsServer server;
  server.start();
  const auto [status, checks] = doctor({"--url", server.url("/"), "--ca-file", server.caFile(), "--check", "documents",
                                        "--check", "ca-bundle", "--check", "service", "--check", "fonts"});
  EXPECT_EQ(status, 0) << checks.dump(2);
  for (const char* name : {"documents", "ca-bundle", "service", "fonts"}) {
    EXPECT_TRUE(checks[name]["ok"]) << checks[name].dump();
    EXPECT_TRUE(checks[name]["fix"].is_null());
  }
  EXPECT_NE(checks["service"]["detail"].get<std::string>().find("certificate verified"), std::string::npos);
}

TEST_F(Doctor, EachNeededCheckFailsWithItsFix) {
  // Documents where no file can be made: a directory without write permission, or for root,
  // who passes that, one in /proc.
  std::string unwritable = "/proc/self";
  if (geteuid() != 0) {
    unwritable = directory_.path() + "/locked";
    mkdir(unwritable.c_str(), 0500);
  }
  // A server whose certificate the system's bundle does not trust.
  endpoint::HttpsServer server;
  server.start();
  const struct {
    const char* check;
    std::vector<std::string> arguments, environment;
    const char *field, *says;
  } cases[] = {
      {"documents", {}, {"TAVREL_DOCUMENTS=" + unwritable}, "fix", "TAVREL_DOCUMENTS"},
      {"ca-bundle", {"--ca-file", directory_.path() + "/missing.pem"}, {}, "detail", "missing.pem"},
      {"service", {"--url", server.url("/")}, {}, "fix", "not trusted"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> arguments{"--check", c.check};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    const auto [status, checks] = doctor(arguments, c.environment);
    EXPECT_EQ(status, 1) << c.check;
    EXPECT_FALSE(checks[c.check]["ok"]) << c.check;
    EXPECT_NE(checks[c.check][c.field].get<std::string>().find(c.says), std::string::npos) << checks[c.check];
  }
  EXPECT_TRUE(server.requests().empty());  // nothing was sent over the untrusted connection
}

TEST_F(Doctor, WhatOnlySomeGamesNeedOnlyWarns) {
  const std::string noFonts = write("no-fonts.conf", "<fontconfig></fontconfig>\n");
  const auto [status, checks] = doctor({"--check", "display", "--check", "opengl", "--check", "vulkan", "--check",
                                        "fallback-fonts"},
                                       {"DISPLAY=", "WAYLAND_DISPLAY=", "VK_ICD_FILENAMES=/nonexistent.json",
                                        "__EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent.json",
                                        "FONTCONFIG_FILE=" + noFonts});
  EXPECT_EQ(status, 0) << checks.dump(2);
  for (const char* name : {"display", "opengl", "vulkan", "fallback-fonts"}) {
    EXPECT_FALSE(checks[name]["ok"]) << checks[name].dump();
    EXPECT_FALSE(checks[name]["needed"]);
    EXPECT_FALSE(checks[name]["fix"].get<std::string>().empty());
  }
}

}  // namespace
}  // namespace tavrel::testing
