#include "platform/main_queue.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <utility>

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
    // As a rule not by a timer of Asio's: while one waits, the library wakes up every five minutes. But a
    // system without descriptors must not end the chain of ticks.
    if (Descriptor timer = wakeTimer(delaySeconds)) {
      runOn(std::make_shared<asio::posix::stream_descriptor>(context_, timer.release()), std::move(work));
    } else {
      auto ownTimer = std::make_shared<asio::steady_timer>(context_, deadlineAfter(delaySeconds));
      ownTimer->async_wait([ownTimer, work = std::move(work)](const asio::error_code& error) {
        if (!error) work();
      });
    }
  }

  void run() override {
    const auto keepRunning = asio::make_work_guard(context_);
    context_.run();
  }

 private:
  static void runOn(const std::shared_ptr<asio::posix::stream_descriptor>& timer,
                    std::function<void()> work) {
    timer->async_wait(asio::posix::stream_descriptor::wait_read,
                      [timer, work = std::move(work)](const asio::error_code& error) {
                        timer->close();
                        if (!error) work();
                      });
  }

  asio::io_context context_{1};
  // Never armed. With the first timer the library opens descriptors of its own, and later there may be none.
  asio::steady_timer first_{context_};
};

}  // namespace

std::unique_ptr<MainQueue> makeMainQueue() { return std::make_unique<AsioMainQueue>(); }

}  // namespace msp
