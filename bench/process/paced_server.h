#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <string>

#include "platform/mutex.h"
#include "server/lab_server.h"

namespace msp::bench {

/// A lab server that sets an agent's pace. For the owner's thread; it waits, and ends the benchmark when what
/// it waits for does not come.
class PacedServer {
 public:
  PacedServer();

  [[nodiscard]] std::string url() const { return server_.url(); }

  /// Asks for a check-in every `interval` seconds, and from the check-in `count` on, counted from the very
  /// first, every `intervalThen` seconds. Returns when it has arrived. The tick that an agent has armed
  /// before an answer still comes at the old pace.
  void run(double interval, std::size_t count, double intervalThen);

  /// Returns when all that arrived has been answered and neither a check-in has come nor a thread of the
  /// process begun or ended for three seconds.
  void waitUntilIdle(pid_t agent) const;

  [[nodiscard]] std::size_t checkIns() const;

  /// The arrival of the latest check-in.
  [[nodiscard]] std::chrono::steady_clock::time_point lastArrival() const;

 private:
  void noteArrival(std::chrono::steady_clock::time_point time);
  void noteAnswer();
  [[nodiscard]] bool isEverythingAnswered() const;

  mutable Mutex mutex_;
  std::condition_variable_any arrived_;
  std::size_t arrivals_ MSP_GUARDED_BY(mutex_) = 0;
  std::size_t answers_ MSP_GUARDED_BY(mutex_) = 0;
  std::chrono::steady_clock::time_point lastArrival_ MSP_GUARDED_BY(mutex_);
  std::size_t turningPoint_ MSP_GUARDED_BY(mutex_) = 0;
  double intervalThen_ MSP_GUARDED_BY(mutex_) = 0;
  lab::LabServer server_;
};

}  // namespace msp::bench
