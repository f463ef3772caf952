#include <fcntl.h>
#include <sys/socket.h>

#include "platform/open_socket.h"

namespace msp {

// Between the two calls another thread may launch a program. That one gets nothing either: every launch
// hands over only what it names (POSIX_SPAWN_CLOEXEC_DEFAULT).
int openSocket(int domain, int type, int protocol) {
  const int descriptor = socket(domain, type, protocol);
  if (descriptor >= 0) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
}

}  // namespace msp
