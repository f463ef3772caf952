#include <fcntl.h>

#include <array>
#include <cerrno>

#include "platform/descriptors.h"

namespace msp {

int openPipe(Pipe& pipe) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
  pipe = {Descriptor(ends[0]), Descriptor(ends[1])};
  return 0;
}

}  // namespace msp
