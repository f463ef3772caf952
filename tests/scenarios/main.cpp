#include <gtest/gtest.h>

#include "scenarios/surroundings.h"

// Asked for by the thread sanitizer, which does not see how the lab servers' HTTP library, itself built
// without it, initializes what its threads share.
extern "C" const char* __tsan_default_suppressions();  // NOLINT(readability-identifier-naming)
const char* __tsan_default_suppressions() { return "race:libcpp-httplib.so\n"; }

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Listing the tests takes no rights: the build does it.
  if (!GTEST_FLAG_GET(list_tests)) msp::test::enterSurroundings();
  return RUN_ALL_TESTS();
}
