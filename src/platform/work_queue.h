#pragma once

#include <functional>
#include <memory>
#include <string>

namespace msp {

/// A serial queue of background work with a thread of its own, of utility quality of service.
///
/// The thread starts with the first work and ends with the queue object, or after it: work already submitted
/// is still done when the object is gone. While there is no work it sleeps. Safe on any thread.
class WorkQueue {
 public:
  /// The label names the queue's thread where the system shows thread names.
  explicit WorkQueue(std::string label);
  ~WorkQueue();
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  /// Runs the work after all that was submitted before. False when the system gives no thread for it; the
  /// work is then dropped. Work that throws ends alone: the exception is logged, the queue goes on.
  [[nodiscard]] bool submit(std::function<void()> work);

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace msp
