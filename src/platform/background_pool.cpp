#include "platform/background_pool.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <utility>

#include "platform/background_thread.h"
#include "platform/event_log.h"
#include "platform/mutex.h"

namespace msp {
namespace {

void runFenced(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& error) {
    logEvent(std::string("Background work failed: ") + error.what());
  } catch (...) {
    logEvent("Background work failed: unknown error");
  }
}

}  // namespace

struct BackgroundPool::State {
  State(std::string threadLabel, std::size_t most) : label(std::move(threadLabel)), mostThreads(most) {}

  /// The next piece of work; without one the thread that asked is to end.
  std::function<void()> takeNext() {
    const MutexLock lock(mutex);
    if (pending.empty()) {
      --threads;
      ended.notify_all();
      return nullptr;
    }
    auto work = std::move(pending.front());
    pending.pop_front();
    return work;
  }

  std::deque<std::function<void()>> takeAll() {
    const MutexLock lock(mutex);
    return std::exchange(pending, {});
  }

  const std::string label;
  const std::size_t mostThreads;
  Mutex mutex;
  std::condition_variable_any ended;
  std::deque<std::function<void()>> pending MSP_GUARDED_BY(mutex);
  std::size_t threads MSP_GUARDED_BY(mutex) = 0;
};

BackgroundPool::BackgroundPool(std::string label, std::size_t mostThreads)
    : state_(std::make_shared<State>(std::move(label), mostThreads)) {}

BackgroundPool::~BackgroundPool() {
  state_->takeAll().clear();  // without the lock: what is dropped may own anything
  const MutexLock lock(state_->mutex);
  while (state_->threads > 0) state_->ended.wait(state_->mutex);
}

bool BackgroundPool::submit(std::function<void()> work) {
  const MutexLock lock(state_->mutex);
  if (state_->threads < state_->mostThreads) {
    const bool started = startBackgroundThread(state_->label, [state = state_] {
      // Each piece of work is gone before the next is taken.
      while (const auto next = state->takeNext()) runFenced(next);
    });
    if (started) ++state_->threads;
    if (state_->threads == 0) return false;
  }
  state_->pending.push_back(std::move(work));
  return true;
}

}  // namespace msp
