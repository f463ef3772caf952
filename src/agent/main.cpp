#include <functional>
#include <string>
#include <utility>

#include "agent/logger.h"
#include "agent/msp_agent.h"
#include "platform/curl_http_client.h"
#include "platform/event_log.h"
#include "platform/host.h"
#include "platform/host_info.h"
#include "platform/in_flight_limit.h"
#include "platform/main_queue.h"
#include "platform/process_setup.h"
#include "platform/work_queue.h"

namespace {

/// Every answer's jobs get a queue of their own, so that a tool that hangs holds up nothing else. Only so
/// many can hang at once: each holds a thread and three descriptors, and the check-ins must not run out of
/// them.
bool startBatch(const std::string& label, std::function<void()> work) {
  static msp::InFlightLimit limit(256);
  auto underWay = limit.tryStart();
  if (!underWay) return false;
  return msp::WorkQueue(label).submit([work = std::move(work), underWay = std::move(underWay)] { work(); });
}

}  // namespace

// All objects here are process-wide and never destroyed: the agent's constructor does not return.
int main() {
  msp::prepareProcess();
  msp::initializeHttp();
  static const std::string directory = msp::executableDirectory();
  static msp::Logger logger(directory);
  msp::setEventSink([](const std::string& message) { logger.log(message); });
  static msp::CurlHttpClient http;
  static const auto mainQueue = msp::makeMainQueue();
  static const msp::MSPAgent agent(*mainQueue, logger, directory, msp::systemHost(), http, startBatch);
}
