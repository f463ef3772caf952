#include <crt_externs.h>
#include <fcntl.h>
#include <sys/event.h>

#include <csignal>

#include "platform/child_system.h"

namespace msp {

sigset_t everySignal() {
  sigset_t signals{};
  sigfillset(&signals);
  return signals;
}

int handOverStandardStreamsOnly(posix_spawn_file_actions_t& /*actions*/, short& flags) {
  flags = static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT);
  return 0;
}

char** environment() { return *_NSGetEnviron(); }

Descriptor exitDescriptor(pid_t child) {
  Descriptor queue(::kqueue());
  if (!queue) return queue;
  ::fcntl(queue.number(), F_SETFD, FD_CLOEXEC);
  struct kevent exit {};
  EV_SET(&exit, static_cast<uintptr_t>(child), EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT, 0, nullptr);
  // ESRCH here means that the child has already exited.
  if (::kevent(queue.number(), &exit, 1, nullptr, 0, nullptr) != 0) queue.close();
  return queue;
}

}  // namespace msp
