#pragma once

#include "platform/descriptors.h"

namespace msp {

/// A close-on-exec descriptor that poll(2) finds readable once, so many seconds (above 0) from now on the
/// monotonic clock, or when the machine wakes if that was while it slept. A delay too long for the system is
/// the longest it can express. Empty when the system gives no descriptor. Safe on any thread.
[[nodiscard]] Descriptor wakeTimer(double seconds);

}  // namespace msp
