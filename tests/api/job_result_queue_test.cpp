#include "api/job_result_queue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace msp {
namespace {

std::vector<std::int64_t> ids(const JobResultQueue& queue) {
  std::vector<std::int64_t> found;
  for (const JobResult& result : queue.snapshot()) found.push_back(result.id);
  return found;
}

TEST(JobResultQueue, keepsResultsInTheirOrderUntilItIsCleared) {
  JobResultQueue queue;
  EXPECT_TRUE(queue.snapshot().empty());
  queue.append({1, "a", 1});
  queue.appendAll({{2, "b", 0}, {3, "c", 1}});
  queue.appendAll({});
  EXPECT_EQ(ids(queue), (std::vector<std::int64_t>{1, 2, 3}));
  EXPECT_EQ(queue.snapshot()[1], (JobResult{2, "b", 0}));
  queue.clear();
  EXPECT_TRUE(queue.snapshot().empty());
}

TEST(JobResultQueue, neverShowsHalfABatch) {
  JobResultQueue queue;
  constexpr int kBatches = 200;
  std::vector<std::thread> threads;
  for (std::int64_t writer = 0; writer < 4; ++writer) {
    threads.emplace_back([&queue, writer] {
      for (int i = 0; i < kBatches; ++i) queue.appendAll({{writer, "first", 1}, {writer, "second", 1}});
    });
  }
  threads.emplace_back([&queue] {
    for (int i = 0; i < kBatches; ++i) {
      const auto seen = queue.snapshot();
      ASSERT_EQ(seen.size() % 2, 0U);
      for (std::size_t at = 0; at < seen.size(); at += 2) {
        ASSERT_EQ(seen[at].id, seen[at + 1].id);
        ASSERT_EQ(seen[at].message, "first");
        ASSERT_EQ(seen[at + 1].message, "second");
      }
      if (i % 50 == 0) queue.clear();
    }
  });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace msp
