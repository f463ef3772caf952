#include "agent/msp_agent.h"

#include <utility>

#include "platform/event_log.h"

namespace msp {
namespace {

constexpr char kAgentVersion[] = "3.3.1";
constexpr double kNormalDelay = 30.0;  // seconds
constexpr double kWaitingDelay = 1.0;  // seconds
// With an interval of 0 the agent must hold steady, not grow.
constexpr int kMostCheckInsUnderWay = 64;

}  // namespace

MSPAgent::MSPAgent(MainQueue& mainQueue, Logger& logger, const std::string& directory, const Host& host,
                   HttpClient& http, BatchStarter startBatch)
    : appVersion_(kAgentVersion),
      checkInInterval_(kNormalDelay),
      mainQueue_(mainQueue),
      apiManager_(kAgentVersion, directory, host, http, std::move(startBatch)),
      dataGatherer_(kAgentVersion, host, http),
      checkInLimit_(kMostCheckInsUnderWay) {
  logger.trimLog();
  logEvent("Starting up: version " + appVersion_);
  if (apiManager_.readyForUse()) {
    scheduleNextTick(kNormalDelay);
    startCheckInCycle();
  } else {
    scheduleNextTick(kWaitingDelay);
  }
  mainQueue_.run();
}

void MSPAgent::scheduleNextTick(double delay) {
  checkInInterval_ = apiManager_.receivedCheckinInterval().value_or(delay);
  mainQueue_.runAfter(checkInInterval_, [this] { tick(); });
}

void MSPAgent::tick() {
  if (!apiManager_.readyForUse()) {
    scheduleNextTick(kWaitingDelay);
    return;
  }
  scheduleNextTick(kNormalDelay);
  startCheckInCycle();
}

void MSPAgent::startCheckInCycle() {
  auto exchange = checkInLimit_.tryStart();
  if (!exchange) return;
  dataGatherer_.gather([this, exchange = std::move(exchange)](GatheredData report) {
    report.job_results = apiManager_.jobResults();
    apiManager_.checkIn(report, exchange);
  });
}

}  // namespace msp
