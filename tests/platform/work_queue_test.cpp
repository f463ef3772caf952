#include "platform/work_queue.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/captured_log.h"

namespace msp {
namespace {

TEST(WorkQueue, doesItsWorkInOrderAndOneAfterAnother) {
  WorkQueue queue("test");
  std::vector<int> order;  // unguarded on purpose: the thread sanitizer sees any two pieces that overlap
  std::promise<void> done;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(queue.submit([&order, i] { order.push_back(i); }));
  ASSERT_TRUE(queue.submit([&done] { done.set_value(); }));
  done.get_future().wait();
  ASSERT_EQ(order.size(), 1000U);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(WorkQueue, doesNotBlockTheThreadThatSubmits) {
  WorkQueue queue("test");
  std::promise<void> release;
  std::promise<std::thread::id> worker;
  ASSERT_TRUE(queue.submit([&] {
    worker.set_value(std::this_thread::get_id());
    release.get_future().wait();
  }));
  EXPECT_NE(worker.get_future().get(), std::this_thread::get_id());
  release.set_value();
  std::promise<void> done;
  ASSERT_TRUE(queue.submit([&done] { done.set_value(); }));
  done.get_future().wait();
}

TEST(WorkQueue, doesWorkOfAQueueThatIsGone) {
  std::promise<void> release;
  std::promise<void> done;
  {
    WorkQueue queue("test");
    ASSERT_TRUE(queue.submit([&release] { release.get_future().wait(); }));
    ASSERT_TRUE(queue.submit([&done] { done.set_value(); }));
  }
  release.set_value();
  done.get_future().wait();
}

TEST(WorkQueue, holdsUpNoOtherQueue) {
  WorkQueue stuck("stuck");
  std::promise<void> release;
  std::promise<void> stuckDone;
  ASSERT_TRUE(stuck.submit([&] {
    release.get_future().wait();
    stuckDone.set_value();
  }));
  WorkQueue other("other");
  std::promise<void> done;
  ASSERT_TRUE(other.submit([&done] { done.set_value(); }));
  done.get_future().wait();
  release.set_value();
  stuckDone.get_future().wait();
}

TEST(WorkQueue, goesOnAfterWorkThatThrows) {
  const test::CapturedLog log;
  std::promise<void> done;
  WorkQueue queue("test");
  ASSERT_TRUE(queue.submit([] { throw std::runtime_error("out of paper"); }));
  ASSERT_TRUE(queue.submit([] { throw 42; }));
  ASSERT_TRUE(queue.submit([&done] { done.set_value(); }));
  done.get_future().wait();
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Background work failed: out of paper",
                                                      "Background work failed: unknown error"}));
}

TEST(WorkQueue, freesWhatItsWorkHeldBeforeTheNextPieceRuns) {
  WorkQueue queue("test");
  auto held = std::make_shared<int>(1);
  std::weak_ptr<int> watch = held;
  std::promise<bool> freed;
  ASSERT_TRUE(queue.submit([held = std::move(held)] {}));
  ASSERT_TRUE(queue.submit([&] { freed.set_value(watch.expired()); }));
  EXPECT_TRUE(freed.get_future().get());
}

}  // namespace
}  // namespace msp
