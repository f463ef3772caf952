#pragma once

#include <string>

#include "agent/logger.h"
#include "api/api_manager.h"
#include "inventory/data_gatherer.h"
#include "platform/host.h"
#include "platform/http_client.h"
#include "platform/in_flight_limit.h"
#include "platform/main_queue.h"

namespace msp {

/// The agent: registers, then checks in at every tick, for the life of the process.
class MSPAgent {
 public:
  /// Does all of the start-up and then runs the main queue on the calling thread, so it does not return.
  /// Everything handed in must outlive the agent; `directory` is that of the executable.
  MSPAgent(MainQueue& mainQueue, Logger& logger, const std::string& directory, const Host& host,
           HttpClient& http, BatchStarter startBatch);
  ~MSPAgent() = default;
  MSPAgent(const MSPAgent&) = delete;
  MSPAgent& operator=(const MSPAgent&) = delete;

  /// Seconds, the delay of the tick that was armed last. For the main queue's thread.
  [[nodiscard]] double checkInInterval() const { return checkInInterval_; }

 private:
  /// Arms the next tick after the server's interval, or after `delay` seconds while there is none.
  void scheduleNextTick(double delay);
  void tick();
  void startCheckInCycle();

  const std::string appVersion_;
  double checkInInterval_;  // seconds
  MainQueue& mainQueue_;
  APIManager apiManager_;
  DataGatherer dataGatherer_;
  InFlightLimit checkInLimit_;
};

}  // namespace msp
