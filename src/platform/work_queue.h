#pragma once

#include <functional>
#include <memory>
#include <string>

namespace msp {

/// A serial queue of background work with a thread of its own, of utility quality of service.
///
/// The thread lives only while there is work, so an idle queue costs nothing. Work already submitted is
/// still done when the queue object is gone. Safe on any thread.
class WorkQueue {
 public:
  /// The label names the queue's thread where the system shows thread names.
  explicit WorkQueue(std::string label);

  /// Runs the work after all that was submitted before. False when the system gives no thread for it; the
  /// work is then dropped. Work that throws ends alone: the exception is logged, the queue goes on.
  [[nodiscard]] bool submit(std::function<void()> work);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace msp
