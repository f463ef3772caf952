#include "platform/work_queue.h"

#include <deque>
#include <exception>
#include <utility>

#include "platform/background_thread.h"
#include "platform/event_log.h"
#include "platform/mutex.h"

namespace msp {

struct WorkQueue::State {
  explicit State(std::string queueLabel) : label(std::move(queueLabel)) {}

  /// The next piece of work, or nothing: then the thread that asked is to end.
  std::function<void()> takeNext() {
    const MutexLock lock(mutex);
    if (pending.empty()) {
      threadRuns = false;
      return nullptr;
    }
    std::function<void()> work = std::move(pending.front());
    pending.pop_front();
    return work;
  }

  const std::string label;
  Mutex mutex;
  std::deque<std::function<void()>> pending MSP_GUARDED_BY(mutex);
  bool threadRuns MSP_GUARDED_BY(mutex) = false;
};

WorkQueue::WorkQueue(std::string label) : state_(std::make_shared<State>(std::move(label))) {}

bool WorkQueue::submit(std::function<void()> work) {
  const MutexLock lock(state_->mutex);
  state_->pending.push_back(std::move(work));
  if (state_->threadRuns) return true;
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
  if (!state_->threadRuns) state_->pending.pop_back();
  return state_->threadRuns;
}

}  // namespace msp
