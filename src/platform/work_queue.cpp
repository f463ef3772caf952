#include "platform/work_queue.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <utility>

#include "platform/background_thread.h"
#include "platform/event_log.h"
#include "platform/mutex.h"

namespace msp {

struct WorkQueue::State {
  explicit State(std::string queueLabel) : label(std::move(queueLabel)) {}

  /// Waits for the next piece of work; nothing when there will be none.
  std::function<void()> takeNext() {
    const MutexLock lock(mutex);
    while (pending.empty() && !closed) changed.wait(mutex);
    if (pending.empty()) return nullptr;
    std::function<void()> work = std::move(pending.front());
    pending.pop_front();
    return work;
  }

  void close() {
    const MutexLock lock(mutex);
    closed = true;
    changed.notify_one();
  }

  const std::string label;
  Mutex mutex;
  std::condition_variable_any changed;
  std::deque<std::function<void()>> pending MSP_GUARDED_BY(mutex);
  bool threadRuns MSP_GUARDED_BY(mutex) = false;
  bool closed MSP_GUARDED_BY(mutex) = false;
};

WorkQueue::WorkQueue(std::string label) : state_(std::make_shared<State>(std::move(label))) {}

WorkQueue::~WorkQueue() { state_->close(); }

bool WorkQueue::submit(std::function<void()> work) {
  const MutexLock lock(state_->mutex);
  if (!state_->threadRuns) {
    state_->threadRuns = startBackgroundThread(state_->label, [state = state_] {
      while (const auto next = state->takeNext()) {
        try {
          next();
        } catch (const std::exception& error) {
          logEvent(std::string("Background work failed: ") + error.what());
        } catch (...) {
          logEvent("Background work failed: unknown error");
        }
      }
    });
  }
  if (!state_->threadRuns) return false;
  state_->pending.push_back(std::move(work));
  state_->changed.notify_one();
  return true;
}

}  // namespace msp
