#include <crt_externs.h>
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <pthread.h>
#include <pthread/qos.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/event.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysctl.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/descriptors.h"
#include "support/darwin/simulated_mac.h"

// What a Mac's C library and kernel have beyond this system's, as far as the agent uses it.

using msp::Descriptor;
using msp::test::SimulatedMac;

namespace {

SimulatedMac& mac() { return SimulatedMac::current(); }

int failWith(int number) {
  errno = number;
  return -1;
}

/// Copies the text and its NUL as far as there is room; how much there would be to copy.
size_t copyText(const std::string& text, char* value, size_t size) {
  const size_t needed = text.size() + 1;
  if (size > 0) std::memcpy(value, text.c_str(), std::min(size, needed));
  return needed;
}

Descriptor timerOf(const struct kevent& change) {
  if (change.fflags != (NOTE_NSECONDS | NOTE_MACH_CONTINUOUS_TIME))
    mac().fault("kevent was given another unit or clock");
  if (change.data <= 0) mac().fault("kevent was given a timer without delay");
  constexpr intptr_t kSecond = 1'000'000'000;
  Descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  itimerspec due{};
  due.it_value = {change.data / kSecond, change.data % kSecond};
  timerfd_settime(timer.number(), 0, &due, nullptr);
  return timer;
}

Descriptor exitOf(const struct kevent& change) {
  if (change.fflags != NOTE_EXIT) mac().fault("kevent was asked for more than the exit");
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(change.ident), 0)));
}

}  // namespace

int sysctlbyname(const char* name, void* value, size_t* size, void* /*newValue*/, size_t newSize) {
  if (mac().fails() || !mac().version) return failWith(ENOENT);
  if (std::string_view(name) != "kern.osproductversion") mac().fault("sysctlbyname was given another name");
  if (newSize != 0) mac().fault("sysctlbyname was to change something");
  const size_t needed = copyText(*mac().version, static_cast<char*>(value), *size);
  if (needed > *size) return failWith(ENOMEM);
  *size = needed;
  return 0;
}

uint64_t clock_gettime_nsec_np(clockid_t clock) {
  if (clock != CLOCK_UPTIME_RAW) mac().fault("clock_gettime_nsec_np was given another clock");
  return mac().uptimeNanoseconds;
}

int _NSGetExecutablePath(char* path, uint32_t* size) {
  if (mac().fails()) return -1;
  const auto needed = static_cast<uint32_t>(mac().executablePath.size() + 1);
  if (*size < needed) {
    *size = needed;
    return -1;
  }
  copyText(mac().executablePath, path, *size);
  return 0;
}

char*** _NSGetEnviron() { return &environ; }

int pthread_setname_np(const char* name) {
  constexpr size_t kLongest = 63;
  if (std::strlen(name) > kLongest) return ENAMETOOLONG;
  const std::scoped_lock lock(mac().mutex);
  mac().threadName = name;
  return 0;
}

int pthread_set_qos_class_self_np(qos_class_t quality, int relativePriority) {
  if (relativePriority != 0) mac().fault("pthread_set_qos_class_self_np was given a priority");
  const std::scoped_lock lock(mac().mutex);
  mac().threadQuality = quality;
  return 0;
}

int fcntl(int descriptor, FullFlush /*command*/) {
  if (fcntl(descriptor, F_GETFD) < 0) return -1;
  if (!mac().knowsFullFlush) return failWith(ENOTSUP);
  const std::scoped_lock lock(mac().mutex);
  ++mac().fullFlushes;
  return 0;
}

size_t confstr(UserDirectory /*name*/, char* value, size_t size) {
  if (mac().fails() || mac().userDirectory.empty()) return 0;
  const size_t needed = copyText(mac().userDirectory, value, size);
  if (size > 0 && needed > size) value[size - 1] = '\0';
  return needed;
}

int renamex_np(const char* from, const char* to, unsigned flags) {
  if (flags != RENAME_EXCL) mac().fault("renamex_np was given other flags");
  return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}

/// A queue for a single event. Until that is added, it is a descriptor that never becomes readable.
int kqueue() { return mac().fails() ? failWith(EMFILE) : eventfd(0, 0); }

int kevent(int queue, const struct kevent* changes, int changeCount, struct kevent* /*events*/,
           int eventCount, const timespec* /*timeout*/) {
  if (changeCount != 1 || eventCount != 0 || changes->flags != (EV_ADD | EV_ONESHOT)) {
    mac().fault("kevent was to do more than add an event for one time");
    return failWith(EINVAL);
  }
  if (mac().fails()) return failWith(ENOMEM);
  const Descriptor event = changes->filter == EVFILT_TIMER ? timerOf(*changes) : exitOf(*changes);
  if (!event) return -1;
  const bool closesOnExec = (fcntl(queue, F_GETFD) & FD_CLOEXEC) != 0;
  return dup3(event.number(), queue, closesOnExec ? O_CLOEXEC : 0) < 0 ? -1 : 0;
}

// NOLINTBEGIN(readability-identifier-naming): names that the linker chooses
/// A Mac's kernel event queues know no requests, FIONBIO neither. Here they are timers and the like.
extern "C" int __real_ioctl(int descriptor, unsigned long request, ...);
extern "C" int __wrap_ioctl(int descriptor, unsigned long request, void* argument) {
  if (request == FIONBIO) {
    const auto link = "/proc/self/fd/" + std::to_string(descriptor);
    std::error_code error;
    if (std::filesystem::read_symlink(link, error).string().starts_with("anon_inode:"))
      return failWith(ENOTTY);
  }
  return __real_ioctl(descriptor, request, argument);
}
// NOLINTEND(readability-identifier-naming)
