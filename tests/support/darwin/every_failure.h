#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "support/darwin/simulated_mac.h"

namespace msp::test {

/// Runs the body once for each of its calls that can fail, with that call failing; hands over its number. Set
/// the Mac up in the first function, which gets a new one each time. Every run has to be without fault.
inline void withEveryFailure(const std::function<void(SimulatedMac& mac)>& setUp,
                             const std::function<void(int failing)>& body) {
  const auto runWith = [&](int failing) {
    SimulatedMac::renew();
    SimulatedMac& mac = SimulatedMac::current();
    setUp(mac);
    mac.failCall(failing);
    body(failing);
    EXPECT_EQ(mac.takeFaults(), std::vector<std::string>()) << "with call " << failing << " failing";
    return mac.fallibleCalls();
  };
  const int calls = runWith(0);
  EXPECT_GT(calls, 0);
  for (int failing = 1; failing <= calls; ++failing) runWith(failing);
}

}  // namespace msp::test
