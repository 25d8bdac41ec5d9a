#pragma once

#include "platform/sim_platform.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace tavrel::testing {

// A seeded simulated platform per test, so draws can be scripted exactly.
class WatermarkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim_ = SimPlatform::create();
    Platform::install(sim_);
  }
  void TearDown() override { sim_->shutdown(); }
  void script(std::vector<std::uint32_t> draws) { sim_->scriptRandom(std::move(draws)); }

  std::shared_ptr<SimPlatform> sim_;
};

}  // namespace tavrel::testing
