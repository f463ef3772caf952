#pragma once

namespace msp {

/// Waits until what was written to the descriptor is on the disk itself, as far as the system can tell.
/// 0, or -1 with errno(3) set. Safe on any thread.
int flushToDisk(int descriptor);

}  // namespace msp
