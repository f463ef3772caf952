#include "platform/background_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/denied_system_calls.h"

namespace msp {
namespace {

TEST(BackgroundPool, runsAllWorkNeverMoreAtOnceThanItMay) {
  std::atomic<int> atOnce = 0, most = 0, left = 200;
  std::promise<void> done;
  BackgroundPool pool("test", 3);
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(pool.submit([&] {
      const int now = ++atOnce;
      for (int before = most; before < now && !most.compare_exchange_weak(before, now);) {
      }
      --atOnce;
      if (--left == 0) done.set_value();
    }));
  }
  done.get_future().wait();
  EXPECT_LE(most, 3);
  EXPECT_GE(most, 1);
}

TEST(BackgroundPool, workThatHangsLeavesTheOtherThreads) {
  std::promise<void> gate, done;
  BackgroundPool pool("test", 2);
  ASSERT_TRUE(pool.submit([opened = gate.get_future().share()] { opened.wait(); }));
  ASSERT_TRUE(pool.submit([&] { done.set_value(); }));
  done.get_future().wait();
  gate.set_value();
}

TEST(BackgroundPool, anEndingPoolDropsWhatWaitsAndWaitsForWhatRuns) {
  std::promise<void> begun, dropped;
  std::atomic<bool> ranToItsEnd = false, ranTheOther = false;
  {
    BackgroundPool pool("test", 1);
    ASSERT_TRUE(pool.submit([&] {
      begun.set_value();
      dropped.get_future().wait();
      ranToItsEnd = true;
    }));
    begun.get_future().wait();
    std::shared_ptr<void> owned(nullptr, [&](void*) { dropped.set_value(); });
    ASSERT_TRUE(pool.submit([&, held = std::move(owned)] { ranTheOther = true; }));
  }
  EXPECT_TRUE(ranToItsEnd);
  EXPECT_FALSE(ranTheOther);
}

TEST(BackgroundPool, workThatThrowsCostsALineInTheLog) {
  const test::CapturedLog log;
  {
    std::promise<void> done;
    BackgroundPool pool("test", 1);
    ASSERT_TRUE(pool.submit([] { throw std::runtime_error("no more"); }));
    ASSERT_TRUE(pool.submit([] { throw 1; }));
    ASSERT_TRUE(pool.submit([&] { done.set_value(); }));
    done.get_future().wait();
  }
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Background work failed: no more",
                                                      "Background work failed: unknown error"}));
}

TEST(BackgroundPool, withoutAnyThreadTheWorkIsRefused) {
  BackgroundPool pool("test", 1);
  bool ran = false;
  const bool arranged = test::runWithoutProcesses([&] { EXPECT_FALSE(pool.submit([&] { ran = true; })); });
  if (!arranged) GTEST_SKIP() << "threads cannot be denied here";
  EXPECT_FALSE(ran);
  std::promise<void> done;
  EXPECT_TRUE(pool.submit([&] { done.set_value(); }));
  done.get_future().wait();
}

}  // namespace
}  // namespace msp
