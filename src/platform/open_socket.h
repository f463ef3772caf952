#pragma once

namespace msp {

/// Opens a socket as socket(2) does, but one that no launched program inherits. -1 with errno set when the
/// system gives none. Safe on any thread.
int openSocket(int domain, int type, int protocol);

}  // namespace msp
