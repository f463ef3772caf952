#include <sys/socket.h>

#include "platform/open_socket.h"

namespace msp {

int openSocket(int domain, int type, int protocol) { return socket(domain, type | SOCK_CLOEXEC, protocol); }

}  // namespace msp
