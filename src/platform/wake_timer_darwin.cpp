#include <fcntl.h>
#include <sys/event.h>

#include <algorithm>

#include "platform/wake_timer.h"

namespace msp {

Descriptor wakeTimer(double seconds) {
  constexpr double kLongest = 9e9;  // seconds: the kernel counts nanoseconds in 63 bits
  constexpr double kNanoseconds = 1e9;
  Descriptor queue(::kqueue());
  if (!queue) return queue;
  ::fcntl(queue.number(), F_SETFD, FD_CLOEXEC);
  struct kevent due {};
  // The continuous clock goes on while the Mac sleeps.
  EV_SET(&due, 1, EVFILT_TIMER, EV_ADD | EV_ONESHOT, NOTE_NSECONDS | NOTE_MACH_CONTINUOUS_TIME,
         static_cast<int64_t>(std::min(seconds, kLongest) * kNanoseconds), nullptr);
  if (::kevent(queue.number(), &due, 1, nullptr, 0, nullptr) != 0) queue.close();
  return queue;
}

}  // namespace msp
