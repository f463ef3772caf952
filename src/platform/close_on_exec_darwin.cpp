#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/close_on_exec.h"

namespace msp {

// Between the two calls a launch on another thread could inherit the descriptor, were it not that every
// launch closes all but the three standard ones.

int openSocket(int domain, int type, int protocol) {
  const int descriptor = socket(domain, type, protocol);
  if (descriptor >= 0) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
}

bool openPipe(int (&ends)[2]) {
  if (pipe(ends) != 0) return false;
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  return true;
}

}  // namespace msp
