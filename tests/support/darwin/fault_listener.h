#pragma once

#include <gtest/gtest.h>

#include "support/darwin/simulated_mac.h"

namespace msp::test {

/// Gives every test a simulated Mac of its own, and fails the test for what it did wrong with it.
class FaultListener : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& /*test*/) override { SimulatedMac::renew(); }
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    EXPECT_EQ(SimulatedMac::current().takeFaults(), std::vector<std::string>());
  }
};

}  // namespace msp::test
