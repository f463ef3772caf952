#include "platform/in_flight_limit.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>
#include <vector>

namespace msp {
namespace {

TEST(InFlightLimit, countsWhatIsUnderWay) {
  InFlightLimit limit(3);
  std::vector<std::shared_ptr<const void>> underWay;
  for (int i = 0; i < 3; ++i) {
    underWay.push_back(limit.tryStart());
    ASSERT_TRUE(underWay.back());
  }
  EXPECT_FALSE(limit.tryStart());
  EXPECT_FALSE(limit.tryStart()) << "a refusal must not count";
  const auto copy = underWay.back();
  underWay.pop_back();
  EXPECT_FALSE(limit.tryStart()) << "a copy holds on";
}

TEST(InFlightLimit, letsTheNextOneInWhenOneIsOver) {
  InFlightLimit limit(1);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(limit.tryStart()) << i;
}

TEST(InFlightLimit, holdsAgainstManyThreads) {
  InFlightLimit limit(4);
  std::atomic<int> inside = 0;
  std::atomic<int> most = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        const auto held = limit.tryStart();
        if (!held) continue;
        const int now = ++inside;
        for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
        }
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(most, 4);
  EXPECT_TRUE(limit.tryStart()) << "all were given back";
}

TEST(InFlightLimit, mayGoBeforeWhatItLetIn) {
  std::optional<InFlightLimit> limit(std::in_place, 1);
  const auto held = limit->tryStart();
  limit.reset();
  EXPECT_TRUE(held);
}

}  // namespace
}  // namespace msp
