#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "platform/child_system.h"

namespace msp {

// sigfillset(3) leaves out the two signals that the C library keeps for itself, and posix_spawn(3) would then
// start the child with these two ignored.
sigset_t everySignal() {
  sigset_t signals{};
  std::memset(&signals, 0xff, sizeof signals);
  return signals;
}

int handOverStandardStreamsOnly(posix_spawn_file_actions_t& actions, short& /*flags*/) {
  return posix_spawn_file_actions_addclosefrom_np(&actions, 3);
}

char** environment() { return environ; }

// pidfd_open(2), of Linux 5.3; the C library has no function for it yet. Close-on-exec by itself.
Descriptor exitDescriptor(pid_t child) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
}

}  // namespace msp
