#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/close_on_exec.h"

namespace msp {

int openSocket(int domain, int type, int protocol) { return socket(domain, type | SOCK_CLOEXEC, protocol); }

bool openPipe(int (&ends)[2]) { return pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0; }

}  // namespace msp
