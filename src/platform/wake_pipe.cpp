#include "platform/wake_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace msp {

WakePipe::WakePipe() {
  if (const int error = openPipe(pipe_); error != 0) {
    throw std::system_error(error, std::generic_category(), "pipe");
  }
  fcntl(pipe_.readingEnd.number(), F_SETFL, O_NONBLOCK);
  fcntl(pipe_.writingEnd.number(), F_SETFL, O_NONBLOCK);
}

void WakePipe::signal() {
  const char byte = 0;
  // A full pipe is readable already.
  while (write(pipe_.writingEnd.number(), &byte, 1) < 0 && errno == EINTR) {
  }
}

void WakePipe::drain() {
  std::array<char, 64> bytes{};
  ssize_t count = 0;
  do {
    count = read(pipe_.readingEnd.number(), bytes.data(), bytes.size());
  } while (count == static_cast<ssize_t>(bytes.size()) || (count < 0 && errno == EINTR));
}

}  // namespace msp
