#include <sys/timerfd.h>

#include <algorithm>
#include <cmath>

#include "platform/wake_timer.h"

namespace msp {

Descriptor wakeTimer(double seconds) {
  constexpr double kLongest = 9e9;  // seconds: the kernel counts nanoseconds in 63 bits
  constexpr double kNanoseconds = 1e9;
  Descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!timer) return timer;
  const double delay = std::min(seconds, kLongest);
  const double whole = std::floor(delay);
  itimerspec due{};
  due.it_value.tv_sec = static_cast<time_t>(whole);
  // A delay of nothing at all would switch the timer off.
  due.it_value.tv_nsec = std::max(1L, static_cast<long>((delay - whole) * kNanoseconds));
  if (timerfd_settime(timer.number(), 0, &due, nullptr) != 0) timer.close();
  return timer;
}

}  // namespace msp
