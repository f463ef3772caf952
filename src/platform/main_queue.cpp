#include "platform/main_queue.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "platform/wake_timer.h"

namespace msp {
namespace {

using Clock = std::chrono::steady_clock;

/// `delaySeconds` from now, at most the last moment the clock can express.
Clock::time_point deadlineAfter(double delaySeconds) {
  const Clock::time_point now = Clock::now();
  const std::chrono::duration<double> delay(delaySeconds);
  if (delay >= std::chrono::duration<double>(Clock::time_point::max() - now)) return Clock::time_point::max();
  return now + std::chrono::duration_cast<Clock::duration>(delay);
}

class AsioMainQueue : public MainQueue {
 public:
  void runAfter(double delaySeconds, std::function<void()> work) override {
    if (delaySeconds <= 0) {
      asio::post(context_, std::move(work));
      return;
    }
    const Clock::time_point due = deadlineAfter(delaySeconds);
    // As a rule not by a timer of Asio's: while one waits, the library wakes up every five minutes. But a
    // system without descriptors must not end the chain of ticks.
    if (Descriptor timer = wakeTimer(delaySeconds)) {
      wakeTimers_.emplace(due, WakeTimer{std::move(timer), std::move(work)});
    } else {
      runByOwnTimer(due, std::move(work));
    }
  }

  void run() override {
    while (true) {
      const bool hasRun = context_.poll_one() > 0;
      if (!wakeTimers_.empty()) {
        takeDue(hasRun ? 0 : millisecondsToOwnTimers());
      } else if (!hasRun) {
        context_.run_one();
      }
    }
  }

 private:
  struct WakeTimer {
    Descriptor descriptor;
    std::function<void()> work;
  };

  void runByOwnTimer(Clock::time_point due, std::function<void()> work) {
    const auto entry = ownTimers_.insert(due);
    auto timer = std::make_shared<asio::steady_timer>(context_, due);
    timer->async_wait([this, entry, timer, work = std::move(work)](const asio::error_code& /*error*/) {
      ownTimers_.erase(entry);
      work();
    });
  }

  /// How long poll(2) may wait: -1 for ever.
  [[nodiscard]] int millisecondsToOwnTimers() const {
    if (ownTimers_.empty()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*ownTimers_.begin() - Clock::now());
    return static_cast<int>(
        std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, std::numeric_limits<int>::max()));
  }

  /// Waits for the wake timers, and hands over the work of those that are due, by their times. Not Asio does
  /// it: it asks each descriptor not to block, which a Mac's timers refuse.
  void takeDue(int timeoutMilliseconds) {
    std::vector<pollfd> waits;
    for (const auto& [due, timer] : wakeTimers_) waits.push_back({timer.descriptor.number(), POLLIN, 0});
    if (::poll(waits.data(), static_cast<nfds_t>(waits.size()), timeoutMilliseconds) <= 0) return;
    auto next = wakeTimers_.begin();
    for (const pollfd& wait : waits) {
      const auto timer = next++;
      if (wait.revents == 0) continue;
      auto taken = wakeTimers_.extract(timer);
      if ((wait.revents & POLLIN) != 0) {
        asio::post(context_, std::move(taken.mapped().work));
      } else {
        runByOwnTimer(taken.key(), std::move(taken.mapped().work));
      }
    }
  }

  asio::io_context context_{1};
  // Without work of its own it is no more finished than this queue is.
  asio::executor_work_guard<asio::io_context::executor_type> neverFinished_{context_.get_executor()};
  // Never armed. With the first timer the library opens descriptors of its own, and later there may be none.
  asio::steady_timer first_{context_};
  std::multimap<Clock::time_point, WakeTimer> wakeTimers_;
  std::multiset<Clock::time_point> ownTimers_;
};

}  // namespace

std::unique_ptr<MainQueue> makeMainQueue() { return std::make_unique<AsioMainQueue>(); }

}  // namespace msp
