#pragma once

#include <functional>
#include <memory>

namespace msp {

/// The main thread's queue: delayed work, run one piece after another.
class MainQueue {
 public:
  virtual ~MainQueue() = default;

  /// Runs the work once, `delaySeconds` from now on the monotonic clock. Negative and zero delays are due
  /// at once; a delay too long for the clock is the longest it can express. Call it before run() or from
  /// work on this queue.
  virtual void runAfter(double delaySeconds, std::function<void()> work) = 0;

  /// Runs the queue on the calling thread, forever.
  virtual void run() = 0;
};

std::unique_ptr<MainQueue> makeMainQueue();

}  // namespace msp
