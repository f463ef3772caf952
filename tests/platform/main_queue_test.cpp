#include "platform/main_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <string>
#include <vector>

#include "platform/wake_timer.h"
#include "support/denied_system_calls.h"

namespace msp {
namespace {

// The queue runs forever; work that throws is how a test gets out.
struct Enough {};

std::vector<std::string> runUntilEnough(MainQueue& queue, std::vector<std::string>& order) {
  EXPECT_THROW(queue.run(), Enough);
  return order;
}

TEST(MainQueue, runsWorkByItsDelayAndNotByTheOrderOfItsArrival) {
  using Clock = std::chrono::steady_clock;
  std::vector<std::string> order;
  Clock::duration arming{};
  // Once more when the machine was so slow that what was armed later really is due later.
  do {
    order.clear();
    const auto queue = makeMainQueue();
    const Clock::time_point start = Clock::now();
    queue->runAfter(0.03, [&] {
      order.emplace_back("last");
      throw Enough();
    });
    queue->runAfter(0.02, [&] { order.emplace_back("second"); });
    queue->runAfter(0.01, [&] { order.emplace_back("first"); });
    arming = Clock::now() - start;
    runUntilEnough(*queue, order);
  } while (arming >= std::chrono::milliseconds(10));
  EXPECT_EQ(order, (std::vector<std::string>{"first", "second", "last"}));
}

TEST(MainQueue, worksOnDelaysOfZeroAndLessAtOnce) {
  for (const double delay : {0.0, -1.0, -1e308, -std::numeric_limits<double>::infinity()}) {
    const auto queue = makeMainQueue();
    std::vector<std::string> order;
    queue->runAfter(3600, [&] { order.emplace_back("much later"); });
    queue->runAfter(delay, [&] {
      order.emplace_back("at once");
      throw Enough();
    });
    EXPECT_EQ(runUntilEnough(*queue, order), std::vector<std::string>{"at once"}) << delay;
  }
}

TEST(MainQueue, keepsWorkWaitingWhoseDelayIsTooLongForTheClock) {
  for (const double delay : {1e10, 1e300, 1e308, std::numeric_limits<double>::max()}) {
    const auto queue = makeMainQueue();
    std::vector<std::string> order;
    queue->runAfter(delay, [&] { order.emplace_back("too early"); });
    queue->runAfter(0.01, [&] {
      order.emplace_back("in time");
      throw Enough();
    });
    EXPECT_EQ(runUntilEnough(*queue, order), std::vector<std::string>{"in time"}) << delay;
  }
}

TEST(MainQueue, keepsItsTimesWhenTheSystemGivesNoDescriptors) {
  const auto queue = makeMainQueue();
  std::vector<std::string> order;
  const bool arranged = test::runWithoutWakeDescriptors([&] {
    EXPECT_FALSE(wakeTimer(1)) << "nothing is tried here";
    queue->runAfter(1e308, [&] { order.emplace_back("too early"); });
    queue->runAfter(0.01, [&] { order.emplace_back("first"); });
    // Armed later and due later, however slow the machine is between the two.
    queue->runAfter(0.02, [&] {
      order.emplace_back("last");
      throw Enough();
    });
  });
  if (!arranged) GTEST_SKIP() << "this system cannot refuse descriptors to one thread";
  EXPECT_EQ(runUntilEnough(*queue, order), (std::vector<std::string>{"first", "last"}));
}

TEST(MainQueue, keepsItsTimesWhenTheSystemGivesADescriptorToSomeOnly) {
  for (const bool firstHasOne : {true, false}) {
    const auto queue = makeMainQueue();
    std::vector<std::string> order;
    const auto first = [&] {
      queue->runAfter(0.01, [&] {
        order.emplace_back("first");
        throw Enough();
      });
    };
    const auto last = [&] { queue->runAfter(3600, [&] { order.emplace_back("last"); }); };
    if (firstHasOne) first();
    const bool arranged = test::runWithoutWakeDescriptors([&] {
      if (firstHasOne) {
        last();
      } else {
        first();
      }
    });
    if (!firstHasOne) last();
    if (!arranged) GTEST_SKIP() << "this system cannot refuse descriptors to one thread";
    EXPECT_EQ(runUntilEnough(*queue, order), std::vector<std::string>{"first"}) << firstHasOne;
  }
}

TEST(MainQueue, holdsUpNoDelayWhileThereIsAlwaysWork) {
  const auto queue = makeMainQueue();
  std::function<void()> always = [&] { queue->runAfter(0, always); };
  queue->runAfter(0, always);
  queue->runAfter(0.01, [] { throw Enough(); });
  EXPECT_THROW(queue->run(), Enough);
}

TEST(MainQueue, goesOnWithWorkThatArmsItselfAgain) {
  const auto queue = makeMainQueue();
  int runs = 0;
  std::function<void()> tick = [&] {
    if (++runs == 1000) throw Enough();
    queue->runAfter(0, tick);
  };
  queue->runAfter(0, tick);
  EXPECT_THROW(queue->run(), Enough);
  EXPECT_EQ(runs, 1000);
}

}  // namespace
}  // namespace msp
