#include "platform/unicode.h"

#include <gtest/gtest.h>

#include <string>

#include "support/darwin/every_failure.h"

namespace msp::test {
namespace {

TEST(ComposedTextOfAMac, staysAsItIsWhenTheSystemFails) {
  withEveryFailure(
      [](SimulatedMac& /*mac*/) {},
      [](int failing) { EXPECT_EQ(composedText("jose\u0301"), failing == 0 ? "jos\u00E9" : "jose\u0301"); });
}

}  // namespace
}  // namespace msp::test
