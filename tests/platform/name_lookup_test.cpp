#include "platform/name_lookup.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

namespace msp::test {
namespace {

/// A resolver that the test holds up, and the answers that came. Safe on any thread.
class LookupRecord {
 public:
  [[nodiscard]] Resolver resolver() {
    return [this](const std::string& host) {
      std::unique_lock lock(mutex_);
      ++calls_[host];
      mostAtOnce_ = std::max(mostAtOnce_, ++running_);
      changed_.notify_all();
      changed_.wait(lock, [&] { return open_; });
      --running_;
      changed_.notify_all();
      return LookupAnswer{{"of " + host}, ""};
    };
  }
  [[nodiscard]] NameLookup::Sink sink() {
    return [this](const std::string& host, LookupAnswer answer) {
      const std::unique_lock lock(mutex_);
      answers_[host].push_back(answer.addresses.empty() ? answer.error : answer.addresses.front());
      ++answerCount_;
      changed_.notify_all();
    };
  }
  void open() {
    const std::unique_lock lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  void waitForRunning(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return running_ == count; });
  }
  void waitForAnswers(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return answerCount_ == count; });
  }
  [[nodiscard]] std::size_t mostAtOnce() {
    const std::unique_lock lock(mutex_);
    return mostAtOnce_;
  }
  [[nodiscard]] int calls(const std::string& host) {
    const std::unique_lock lock(mutex_);
    return calls_[host];
  }
  [[nodiscard]] std::vector<std::string> answers(const std::string& host) {
    const std::unique_lock lock(mutex_);
    return answers_[host];
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
  std::size_t running_ = 0, mostAtOnce_ = 0, answerCount_ = 0;
  std::map<std::string, int> calls_;
  std::map<std::string, std::vector<std::string>> answers_;
};

std::string hostOf(int number) { return "host" + std::to_string(number); }

TEST(NameLookup, everyNameIsAnswered) {
  LookupRecord record;
  record.open();
  NameLookup lookup(record.resolver(), record.sink());
  for (int i = 0; i < 100; ++i) lookup.start(hostOf(i));
  record.waitForAnswers(100);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(record.answers(hostOf(i)), std::vector<std::string>{"of " + hostOf(i)});
  }
}

TEST(NameLookup, onlySoManyRunAtOnceAndTheOthersWaitTheirTurn) {
  LookupRecord record;
  NameLookup lookup(record.resolver(), record.sink());
  constexpr int kNames = 100;
  static_assert(kNames > NameLookup::kMostThreads);
  for (int i = 0; i < kNames; ++i) lookup.start(hostOf(i));
  record.waitForRunning(NameLookup::kMostThreads);
  record.open();
  record.waitForAnswers(kNames);
  EXPECT_EQ(record.mostAtOnce(), NameLookup::kMostThreads);
}

TEST(NameLookup, aNameUnderWayIsLookedUpOnce) {
  LookupRecord record;
  NameLookup lookup(record.resolver(), record.sink());
  lookup.start("host");
  record.waitForRunning(1);
  lookup.start("host");
  lookup.start("other");
  record.waitForRunning(2);
  record.open();
  record.waitForAnswers(2);
  EXPECT_EQ(record.calls("host"), 1);
  EXPECT_EQ(record.answers("host").size(), 1U);
}

TEST(NameLookup, aNameAnsweredBeforeIsLookedUpAgain) {
  LookupRecord record;
  record.open();
  NameLookup lookup(record.resolver(), record.sink());
  lookup.start("host");
  record.waitForAnswers(1);
  lookup.start("host");
  record.waitForAnswers(2);
  EXPECT_EQ(record.calls("host"), 2);
}

TEST(NameLookup, aForgottenNameIsNotLookedUpWhenItsTurnComes) {
  LookupRecord record;
  NameLookup lookup(record.resolver(), record.sink());
  constexpr int kFirstThatWaits = NameLookup::kMostThreads;
  for (int i = 0; i < kFirstThatWaits + 2; ++i) lookup.start(hostOf(i));
  record.waitForRunning(NameLookup::kMostThreads);
  lookup.forget(hostOf(0));                // too late
  lookup.forget(hostOf(kFirstThatWaits));  // still waiting
  record.open();
  record.waitForAnswers(kFirstThatWaits + 1);
  EXPECT_EQ(record.calls(hostOf(0)), 1);
  EXPECT_EQ(record.calls(hostOf(kFirstThatWaits)), 0);
  EXPECT_EQ(record.calls(hostOf(kFirstThatWaits + 1)), 1);
}

TEST(NameLookup, nothingIsToldOnceTheObjectIsGone) {
  LookupRecord hung, record;
  {
    NameLookup lookup(hung.resolver(), record.sink());
    lookup.start("host");
    hung.waitForRunning(1);
  }
  hung.open();
  hung.waitForRunning(0);
  EXPECT_TRUE(record.answers("host").empty());
}

TEST(NameLookup, aResolverThatThrowsIsAnAnswerWithoutAddresses) {
  LookupRecord record;
  NameLookup lookup([](const std::string&) -> LookupAnswer { throw std::runtime_error("no memory"); },
                    record.sink());
  lookup.start("host");
  record.waitForAnswers(1);
  EXPECT_EQ(record.answers("host"), std::vector<std::string>{"no memory"});
}

TEST(ResolveHost, addressesAreTheirOwnAnswer) {
  EXPECT_EQ(resolveHost("127.0.0.1").addresses, std::vector<std::string>{"127.0.0.1"});
  EXPECT_EQ(resolveHost("::1").addresses, std::vector<std::string>{"::1"});
}

TEST(ResolveHost, thisMachineIsALoopbackAddress) {
  const LookupAnswer answer = resolveHost("localhost");
  ASSERT_FALSE(answer.addresses.empty()) << answer.error;
  for (const auto& address : answer.addresses)
    EXPECT_TRUE(address == "127.0.0.1" || address == "::1") << address;
}

TEST(ResolveHost, whatIsNoNameHasAReason) {
  const LookupAnswer answer = resolveHost("");
  EXPECT_TRUE(answer.addresses.empty());
  EXPECT_FALSE(answer.error.empty());
}

}  // namespace
}  // namespace msp::test
