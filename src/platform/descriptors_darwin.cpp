#include <fcntl.h>

#include <array>
#include <cerrno>

#include "platform/descriptors.h"

namespace msp {

// Between the two calls another thread may launch a program. That one gets nothing either: every launch
// hands over only what it names (POSIX_SPAWN_CLOEXEC_DEFAULT).
int openPipe(Pipe& pipe) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return errno;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  pipe = {Descriptor(ends[0]), Descriptor(ends[1])};
  return 0;
}

}  // namespace msp
