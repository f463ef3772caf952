#include "platform/main_queue.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <utility>

namespace msp {
namespace {

using Clock = std::chrono::steady_clock;

/// `delaySeconds` from now, at most the last moment the clock can express.
Clock::time_point deadlineAfter(double delaySeconds) {
  const Clock::time_point now = Clock::now();
  if (delaySeconds <= 0) return now;
  const std::chrono::duration<double> delay(delaySeconds);
  if (delay >= std::chrono::duration<double>(Clock::time_point::max() - now)) return Clock::time_point::max();
  return now + std::chrono::duration_cast<Clock::duration>(delay);
}

class AsioMainQueue : public MainQueue {
 public:
  void runAfter(double delaySeconds, std::function<void()> work) override {
    auto timer = std::make_shared<asio::steady_timer>(context_, deadlineAfter(delaySeconds));
    timer->async_wait([timer, work = std::move(work)](const asio::error_code& error) {
      if (!error) work();
    });
  }

  void run() override {
    const auto keepRunning = asio::make_work_guard(context_);
    context_.run();
  }

 private:
  asio::io_context context_{1};
};

}  // namespace

std::unique_ptr<MainQueue> makeMainQueue() { return std::make_unique<AsioMainQueue>(); }

}  // namespace msp
