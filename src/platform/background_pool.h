#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace msp {

/// Runs pieces of work side by side on background threads, at most so many at once; the others wait for their
/// turn. The threads live only while there is work. Safe on any thread.
class BackgroundPool {
 public:
  /// The label names the threads where the system shows thread names.
  BackgroundPool(std::string label, std::size_t mostThreads);
  /// Drops the work that waits for its turn, and waits for that which runs. Not for such work to call.
  ~BackgroundPool();
  BackgroundPool(const BackgroundPool&) = delete;
  BackgroundPool& operator=(const BackgroundPool&) = delete;

  /// False when the system gives no thread and none is at work; the work is then dropped. Work that throws
  /// ends alone: the exception is logged.
  [[nodiscard]] bool submit(std::function<void()> work);

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace msp
