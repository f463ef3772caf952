#include "process/paced_server.h"

#include <thread>

#include "platform/console.h"
#include "process/process_figures.h"

namespace msp::bench {

PacedServer::PacedServer()
    : server_({.arrived = [this](const lab::Received& received) { noteArrival(received.arrival); },
               .answered = [this](const lab::Received&, const lab::ServerAnswer&) { noteAnswer(); },
               .jobQueued = {}}) {
  if (!server_.start()) fatalError("the lab server does not start");
}

void PacedServer::run(double interval, std::size_t count, double intervalThen) {
  constexpr std::chrono::minutes kPatience{20};
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  const MutexLock lock(mutex_);
  server_.setCheckInInterval(interval);
  turningPoint_ = count;
  intervalThen_ = intervalThen;
  while (arrivals_ < count) {
    if (arrived_.wait_until(mutex_, deadline) == std::cv_status::timeout)
      fatalError("the check-ins stay out");
  }
}

void PacedServer::waitUntilIdle(pid_t agent) const {
  constexpr std::chrono::milliseconds kLook{100};
  constexpr int kQuietLooks = 30;
  std::size_t checkInsBefore = 0;
  std::size_t threadsBefore = 0;
  for (int quietLooks = 0; quietLooks < kQuietLooks; ++quietLooks) {
    const std::size_t checkInsNow = checkIns();
    const std::size_t threadsNow = threadsOf(agent);
    if (checkInsNow != checkInsBefore || threadsNow != threadsBefore || !isEverythingAnswered())
      quietLooks = 0;
    checkInsBefore = checkInsNow;
    threadsBefore = threadsNow;
    std::this_thread::sleep_for(kLook);
  }
}

std::size_t PacedServer::checkIns() const {
  const MutexLock lock(mutex_);
  return arrivals_;
}

std::chrono::steady_clock::time_point PacedServer::lastArrival() const {
  const MutexLock lock(mutex_);
  return lastArrival_;
}

void PacedServer::noteArrival(std::chrono::steady_clock::time_point time) {
  const MutexLock lock(mutex_);
  lastArrival_ = time;
  if (++arrivals_ == turningPoint_) server_.setCheckInInterval(intervalThen_);
  arrived_.notify_all();
}

void PacedServer::noteAnswer() {
  const MutexLock lock(mutex_);
  ++answers_;
}

bool PacedServer::isEverythingAnswered() const {
  const MutexLock lock(mutex_);
  return answers_ == arrivals_;
}

}  // namespace msp::bench
