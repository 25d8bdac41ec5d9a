// tavrel doctor as a process: each check that every game needs fails once on purpose and turns
// the exit status to 1; what only some games need (display, OpenGL, Vulkan, fallback fonts)
// warns and leaves it at 0.

#include "support/sandbox.hpp"
#include "support/tool_runner.hpp"

#include "endpoint/https_server.hpp"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace tavrel::testing {
namespace {

class Doctor : public ::testing::Test {
 protected:
  void SetUp() override {
    if (toolPath().empty()) GTEST_SKIP() << "TAVREL_TOOL is not set";
  }
  // The checks' results by name, and the exit status.
  std::pair<int, nlohmann::json> doctor(std::vector<std::string> arguments, std::vector<std::string> environment = {}) {
    arguments.insert(arguments.begin(), "doctor");
    arguments.push_back("--json");
    environment.push_back("TAVREL_DOCUMENTS=" + documents_.path());
    const ToolRun run = runTool(arguments, environment);
    nlohmann::json byName = nlohmann::json::object();
    EXPECT_TRUE(nlohmann::json::accept(run.out)) << run.out << run.err;
    if (!nlohmann::json::accept(run.out)) return {run.status, byName};
    const nlohmann::json out = nlohmann::json::parse(run.out);
    for (const auto& check : out["checks"]) byName[check["check"].get<std::string>()] = check;
    return {run.status, byName};
  }

  TemporaryDirectory documents_;
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
    unwritable = documents_.path() + "/locked";
    mkdir(unwritable.c_str(), 0500);
  }
  auto [status, checks] = doctor({"--check", "documents"}, {"TAVREL_DOCUMENTS=" + unwritable});
  EXPECT_EQ(status, 1);
  EXPECT_FALSE(checks["documents"]["ok"]);
  EXPECT_NE(checks["documents"]["fix"].get<std::string>().find("TAVREL_DOCUMENTS"), std::string::npos);

  std::tie(status, checks) = doctor({"--check", "ca-bundle", "--ca-file", documents_.path() + "/missing.pem"});
  EXPECT_EQ(status, 1);
  EXPECT_FALSE(checks["ca-bundle"]["ok"]);
  EXPECT_NE(checks["ca-bundle"]["detail"].get<std::string>().find("missing.pem"), std::string::npos);

  // A server whose certificate the system's bundle does not trust.
  endpoint::HttpsServer server;
  server.start();
  std::tie(status, checks) = doctor({"--check", "service", "--url", server.url("/")});
  EXPECT_EQ(status, 1);
  EXPECT_FALSE(checks["service"]["ok"]);
  EXPECT_NE(checks["service"]["fix"].get<std::string>().find("not trusted"), std::string::npos);
  EXPECT_TRUE(server.requests().empty());  // nothing was sent over the untrusted connection
}

TEST_F(Doctor, WhatOnlySomeGamesNeedOnlyWarns) {
  std::ofstream(documents_.path() + "/no-fonts.conf") << "<fontconfig></fontconfig>\n";
  const auto [status, checks] = doctor({"--check", "display", "--check", "opengl", "--check", "vulkan", "--check",
                                        "fallback-fonts"},
                                       {"DISPLAY=", "WAYLAND_DISPLAY=", "VK_ICD_FILENAMES=/nonexistent.json",
                                        "__EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent.json",
                                        "FONTCONFIG_FILE=" + documents_.path() + "/no-fonts.conf"});
  EXPECT_EQ(status, 0) << checks.dump(2);
  for (const char* name : {"display", "opengl", "vulkan", "fallback-fonts"}) {
    EXPECT_FALSE(checks[name]["ok"]) << checks[name].dump();
    EXPECT_FALSE(checks[name]["needed"]);
    EXPECT_FALSE(checks[name]["fix"].get<std::string>().empty());
  }
}

}  // namespace
}  // namespace tavrel::testing
