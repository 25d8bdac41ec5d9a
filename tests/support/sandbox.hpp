#pragma once

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

// The session globals and the singleton's overlay, parent controller and timer, as at load.
void resetSessionGlobals();

// Reads a whole file; fails the test when it cannot.
std::string readFile(const std::string& path);

// A SimPlatform (seed 1) with Documents in a fresh directory, and the globals reset before and after.
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
