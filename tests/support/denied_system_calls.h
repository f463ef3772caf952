#pragma once

#include <functional>
#include <thread>
#include <vector>

#ifdef __linux__
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#endif

namespace msp::test {

#ifdef __linux__

namespace detail {

/// Makes the calling thread, and what it launches, get `error` from these system calls.
inline bool denyOnThisThread(const std::vector<long>& calls, int error) {
  std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const long call : calls) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(call), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<__u32>(error)));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

inline bool runWithout(const std::vector<long>& calls, int error, const std::function<void()>& work) {
  bool denied = false;
  std::thread([&] {
    denied = denyOnThisThread(calls, error);
    if (denied) work();
  }).join();
  return denied;
}

}  // namespace detail

/// Runs the work on a thread for which the system gives no exit descriptors, as an old kernel does not.
/// False, and the work is not run, where the test cannot arrange that.
inline bool runWithoutExitDescriptors(const std::function<void()>& work) {
  return detail::runWithout({SYS_pidfd_open}, ENOSYS, work);
}

/// Runs the work on a thread that can start no process. False where the test cannot arrange that.
inline bool runWithoutProcesses(const std::function<void()>& work) {
  return detail::runWithout({SYS_clone, SYS_clone3, SYS_vfork}, EAGAIN, work);
}

/// Runs the work on a thread that can open no descriptor for a time or an event to wake up by, as when the
/// process has used them all up. (A sanitizer needs a few other ones, for its own checks.) False where the
/// test cannot arrange that.
inline bool runWithoutWakeDescriptors(const std::function<void()>& work) {
  return detail::runWithout({SYS_timerfd_create, SYS_eventfd2, SYS_epoll_create1}, EMFILE, work);
}

#else

inline bool runWithoutExitDescriptors(const std::function<void()>& /*work*/) { return false; }
inline bool runWithoutProcesses(const std::function<void()>& /*work*/) { return false; }
inline bool runWithoutWakeDescriptors(const std::function<void()>& /*work*/) { return false; }

#endif

}  // namespace msp::test
