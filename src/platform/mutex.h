#pragma once

#include <mutex>

// What clang's -Wthread-safety needs to know; nothing to any other compiler.
#if defined(__clang__)
#define MSP_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define MSP_THREAD_ANNOTATION(x)
#endif

#define MSP_GUARDED_BY(x) MSP_THREAD_ANNOTATION(guarded_by(x))
#define MSP_REQUIRES(x) MSP_THREAD_ANNOTATION(requires_capability(x))

namespace msp {

/// A mutex whose use the compiler checks: name it in MSP_GUARDED_BY beside what it guards.
class MSP_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() MSP_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() MSP_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex until the end of its scope. Also fit for std::condition_variable_any.
class MSP_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) MSP_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() MSP_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace msp
