#pragma once

// Test support: a fresh simulated platform with its own Documents directory, and the session
// globals back at their load-time values, for every test.

#include <tavrel_sdk/tavrel_sdk.hpp>

#include "platform/sim_platform.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace tavrel::testing {

// A directory under the system's temporary directory, removed with its contents on destruction.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Puts the sixteen session globals, and the singleton's overlay, parent controller and timer,
// back to their values at load.
void resetSessionGlobals();

// Reads a whole file; fails the test when it cannot.
std::string readFile(const std::string& path);

// Fixture: installs a SimPlatform (seed 1, Documents in a fresh temporary directory), resets the
// globals; on tear-down shuts the platform's threads down and resets the globals again.
class SimulatedSession : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  SimPlatform& sim() { return *sim_; }
  const std::string& documents() const { return documents_.path(); }
  TavrelSDK& sdk() { return TavrelSDK::sharedInstance(); }

  // Set before SetUp() to change how the platform is made.
  SimPlatform::Options simOptions;

 private:
  TemporaryDirectory documents_;
  std::shared_ptr<SimPlatform> sim_;
};

}  // namespace tavrel::testing
