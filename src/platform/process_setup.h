#pragma once

namespace msp {

/// Makes this process fit for a long life as a daemon. Call it first thing in main, before any thread:
/// descriptors 0, 1 and 2 are opened on /dev/null where they are closed, so that no file or pipe takes their
/// place; a closed connection is an error instead of a SIGPIPE; children can be waited for whatever the
/// parent did with SIGCHLD; the soft limit on descriptors rises to the hard one, 10,240 at most, since
/// launchd starts a daemon with 256; and the memory allocator keeps little for itself. What the system
/// refuses stays as it was.
void prepareProcess();

}  // namespace msp
