#pragma once

#include "platform/descriptors.h"

namespace msp {

/// Wakes one thread that waits in poll(2) for readable().
class WakePipe {
 public:
  /// Throws std::system_error when the system gives no pipe.
  WakePipe();

  /// Makes readable() readable. Never blocks; on any thread.
  void signal();

  /// Takes all signals back. Never blocks.
  void drain();

  /// The descriptor to wait for.
  [[nodiscard]] int readable() const { return pipe_.readingEnd.number(); }

 private:
  Pipe pipe_;
};

}  // namespace msp
