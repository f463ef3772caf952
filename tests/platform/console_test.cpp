#include "platform/console.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace msp {
namespace {

TEST(Console, printsOneLineAtATime) {
  testing::internal::CaptureStdout();
  printLine("first");
  printLine("");
  printLine("last");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "first\n\nlast\n");
}

TEST(Console, doesNotMixTheLinesOfTwoThreads) {
  const std::string longLine(5000, 'a');
  testing::internal::CaptureStdout();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&longLine] {
      for (int n = 0; n < 50; ++n) printLine(longLine);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::string expected;
  for (int i = 0; i < 200; ++i) expected += longLine + "\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

TEST(ConsoleDeathTest, aFatalErrorIsOneLineAndTheEnd) {
  EXPECT_EXIT(fatalError("Bad URL"), testing::KilledBySignal(SIGABRT), "^Bad URL\n$");
}

}  // namespace
}  // namespace msp
