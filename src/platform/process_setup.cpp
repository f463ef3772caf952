#include "platform/process_setup.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "platform/allocator.h"

namespace msp {

namespace {

constexpr rlim_t kMostDescriptors = 10'240;

void openStandardStreams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open(2) takes the lowest free number, which is this one: those before it are open by now.
    if (::fcntl(number, F_GETFD) < 0) ::open("/dev/null", O_RDWR);
  }
}

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t wanted = std::min(limit.rlim_max, kMostDescriptors);
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = wanted;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void prepareProcess() {
  openStandardStreams();
  // A write that fails is to say so, not to end the process.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  raiseDescriptorLimit();
  keepAllocatorSmall();
}

}  // namespace msp
