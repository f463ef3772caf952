#pragma once

/// Descriptors that no child process inherits. They are born that way where the system can do so; the other
/// system closes them at each launch. Safe on any thread.
namespace msp {

/// A socket as of socket(2); -1 with errno set on failure.
int openSocket(int domain, int type, int protocol);

/// A pipe as of pipe(2), read end first, neither end of which ever blocks. False with errno set on failure.
[[nodiscard]] bool openPipe(int (&ends)[2]);

}  // namespace msp
