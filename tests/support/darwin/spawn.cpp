#include <spawn.h>

#include <csignal>
#include <cstring>

#include "support/darwin/simulated_mac.h"

// posix_spawn(2) of a Mac, which can hand over no descriptors but those that are named. The linker puts it in
// the place of this system's (--wrap).

using msp::test::SimulatedMac;

// NOLINTBEGIN(readability-identifier-naming): names that the linker chooses
extern "C" {
int __real_posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags);
int __real_posix_spawnattr_setsigdefault(posix_spawnattr_t* attributes, const sigset_t* signals);
int __real_posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment);

int __wrap_posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) {
  SimulatedMac::current().setHandsOverNamedOnly(attributes, (flags & POSIX_SPAWN_CLOEXEC_DEFAULT) != 0);
  return __real_posix_spawnattr_setflags(attributes,
                                         static_cast<short>(flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT));
}

/// All signals but two are all there are on a Mac; this system's library keeps these two for itself.
int __wrap_posix_spawnattr_setsigdefault(posix_spawnattr_t* attributes, const sigset_t* signals) {
  sigset_t all{};
  sigfillset(&all);
  if (std::memcmp(&all, signals, sizeof all) == 0)
    std::memset(&all, 0xff, sizeof all);
  else
    all = *signals;
  return __real_posix_spawnattr_setsigdefault(attributes, &all);
}

int __wrap_posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments,
                       char* const* environment) {
  if (SimulatedMac::current().handsOverNamedOnly(attributes)) {
    // The agent names the three standard streams, and its actions are no constants.
    auto* const longer = const_cast<posix_spawn_file_actions_t*>(  // NOLINT(*-pro-type-const-cast)
        actions);
    if (const int problem = posix_spawn_file_actions_addclosefrom_np(longer, 3); problem != 0) return problem;
  }
  return __real_posix_spawn(child, path, actions, attributes, arguments, environment);
}
}
// NOLINTEND(readability-identifier-naming)
