#pragma once

namespace msp {

/// Wakes one thread that waits in poll(2) for readable(). Its descriptors are closed with it.
class WakePipe {
 public:
  /// Throws std::system_error when the system gives no pipe.
  WakePipe();
  ~WakePipe();
  WakePipe(const WakePipe&) = delete;
  WakePipe& operator=(const WakePipe&) = delete;

  /// Makes readable() readable. Never blocks; on any thread.
  void signal();

  /// Takes all signals back. Never blocks.
  void drain();

  /// The descriptor to wait for.
  [[nodiscard]] int readable() const { return ends_[0]; }

 private:
  int ends_[2] = {-1, -1};
};

}  // namespace msp
