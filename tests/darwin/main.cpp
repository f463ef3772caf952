#include <gtest/gtest.h>

#include "support/darwin/fault_listener.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new msp::test::FaultListener);
  return RUN_ALL_TESTS();
}
