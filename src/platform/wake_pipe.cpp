#include "platform/wake_pipe.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/close_on_exec.h"

namespace msp {

WakePipe::WakePipe() {
  if (!openPipe(ends_)) throw std::system_error(errno, std::generic_category(), "pipe");
}

WakePipe::~WakePipe() {
  for (const int end : ends_) close(end);
}

void WakePipe::signal() {
  const char byte = 0;
  // A full pipe is readable already.
  while (write(ends_[1], &byte, 1) < 0 && errno == EINTR) {
  }
}

void WakePipe::drain() {
  std::array<char, 64> bytes{};
  ssize_t count = 0;
  do {
    count = read(ends_[0], bytes.data(), bytes.size());
  } while (count == static_cast<ssize_t>(bytes.size()) || (count < 0 && errno == EINTR));
}

}  // namespace msp
