#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <csignal>

#include "platform/descriptors.h"

/// What launching and watching a child takes beyond POSIX. Safe on any thread.
namespace msp {

/// All signals there are, for posix_spawnattr_setsigdefault(3).
[[nodiscard]] sigset_t everySignal();

/// Makes a launch hand over no descriptor but 0, 1 and 2, which `actions` must already set up. Adds to
/// `actions` or to the attribute flags, whichever the system has. 0 or an errno(3) value.
[[nodiscard]] int handOverStandardStreamsOnly(posix_spawn_file_actions_t& actions, short& flags);

/// This process's environment, as posix_spawn(3) takes it.
[[nodiscard]] char** environment();

/// A descriptor that poll(2) finds readable once this unwaited child of ours has exited; waitpid(2) then
/// ends soon. Empty when the system has none to give, or none any more because the child is already gone.
[[nodiscard]] Descriptor exitDescriptor(pid_t child);

}  // namespace msp
