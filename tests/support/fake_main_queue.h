#pragma once

#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/main_queue.h"

namespace msp::test {

/// A main queue without a clock: it keeps what was submitted until the test fires it. run() returns at once.
class FakeMainQueue : public MainQueue {
 public:
  void runAfter(double delaySeconds, std::function<void()> work) override {
    delays_.push_back(delaySeconds);
    waiting_.push_back(std::move(work));
  }
  void run() override { ++runs_; }

  /// Every delay asked for, in order.
  [[nodiscard]] const std::vector<double>& delays() const { return delays_; }
  [[nodiscard]] std::size_t waiting() const { return waiting_.size(); }
  [[nodiscard]] int runs() const { return runs_; }

  /// Runs the work that has waited longest.
  void fire() {
    if (waiting_.empty()) throw std::logic_error("nothing waits on the main queue");
    const auto work = std::move(waiting_.front());
    waiting_.erase(waiting_.begin());
    work();
  }

 private:
  std::vector<double> delays_;
  std::vector<std::function<void()>> waiting_;
  int runs_ = 0;
};

}  // namespace msp::test
