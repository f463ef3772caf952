#include <gtest/gtest.h>

#include "scenarios/surroundings.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Listing the tests takes no rights: the build does it.
  if (!GTEST_FLAG_GET(list_tests)) msp::test::enterSurroundings();
  return RUN_ALL_TESTS();
}
