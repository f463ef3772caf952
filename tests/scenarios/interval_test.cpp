#include <gtest/gtest.h>

#include <set>
#include <string>

#include "scenarios/scenario.h"

namespace msp::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

// 64 check-ins and as many look-ups of the public address may be under way, each on a connection of its own.
constexpr std::size_t kMostDescriptors = 2 * 64 + 24;
constexpr std::size_t kMostThreads = 12;
// Growth since the first check-ins; a burst of requests leaves some memory behind, once.
constexpr std::int64_t kGrowthKiB = 1024, kGrowthOfBurstKiB = 4096;

void expectSteady(const ProcessFacts& before, const ProcessFacts& after, std::int64_t growthKiB) {
  EXPECT_LE(after.threads, kMostThreads);
  EXPECT_LE(after.descriptors.size(), kMostDescriptors);
  // A sanitizer keeps what was freed.
  if (!kSanitized) {
    EXPECT_LE(after.privateKiB, before.privateKiB + growthKiB);
  }
}

using Interval = Scenario;

TEST_F(Interval, ofZeroOrLessMakesCheckInsFollowOneAnotherAndAHugeOneEndsThem) {
  Lab lab;
  Lab clock;
  for (Lab* one : {&lab, &clock}) {
    one->storeIdentity();
    one->server().setCheckInInterval(one == &lab ? Json(0) : Json(0.2));
    one->startAgent();
  }
  constexpr std::size_t kWarmUp = 100, kMany = 150;
  lab.checkIn(kWarmUp);
  const auto before = lab.agent().facts();
  lab.checkIn(kWarmUp + kMany);
  expectSteady(before, lab.agent().facts(), kGrowthKiB);

  lab.server().setCheckInInterval(-1);
  lab.checkIn(lab.checkIns() + kMany);
  expectSteady(before, lab.agent().facts(), kGrowthKiB);

  // A child that ended a moment ago is no zombie; one that stays is.
  const auto ended = lab.agent().zombies();
  lab.checkIn(lab.checkIns() + 20);
  for (const auto child : lab.agent().zombies()) EXPECT_EQ(ended.count(child), 0U);

  // With answers that do not come there are 64 check-ins under way, and no more.
  lab.server().holdAnswers("checkin");
  const auto held = lab.checkIns() + 64;
  lab.checkIn(held - 1);
  clock.checkIn(clock.checkIns() + 5);
  EXPECT_LE(lab.checkIns(), held);
  lab.server().releaseAnswers("checkin");
  lab.checkIn(held + kMany);
  expectSteady(before, lab.agent().facts(), kGrowthOfBurstKiB);

  lab.server().setCheckInInterval(1e308);
  // The last ticks that were armed before the answer are over soon.
  for (std::size_t seen = 0; seen != lab.checkIns();) {
    seen = lab.checkIns();
    clock.checkIn(clock.checkIns() + 10);
  }
  const auto last = lab.checkIns();
  const auto idle = lab.agent().facts();

  clock.checkIn(clock.checkIns() + 10);
  EXPECT_EQ(lab.checkIns(), last);
  // A sanitizer has a thread of its own that wakes up.
  if (!kSanitized) {
    EXPECT_EQ(lab.agent().facts().voluntaryContextSwitches, idle.voluntaryContextSwitches);
    EXPECT_LE(idle.threads, 8U);
    EXPECT_LE(idle.descriptors.size(), 16U) << testing::PrintToString(idle.descriptors);
  }
  EXPECT_EQ(lab.log(), std::vector<std::string>{"Starting up: version 3.3.1"});
  EXPECT_EQ(lab.output(), std::vector<std::string>{});
}

}  // namespace
}  // namespace msp::test
