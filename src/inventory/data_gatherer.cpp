#include "inventory/data_gatherer.h"

#include <chrono>
#include <optional>
#include <utility>

#include "inventory/addresses.h"
#include "inventory/system_facts.h"
#include "platform/event_log.h"
#include "platform/mutex.h"
#include "platform/task_runner.h"

namespace msp {

struct DataGatherer::State {
  State(std::string version, const Host& machine, HttpClient& http)
      : agentVersion(std::move(version)), host(machine), wanAddress(http), taskRunner(host.makeTaskRunner()) {
    gatheredData.agent_version = agentVersion;
  }

  GatheredData refresh();

  const std::string agentVersion;
  const Host& host;
  // Not under the lock: an answer that waited for a tool would hold up every other request.
  WanAddress wanAddress;

  Mutex mutex;
  const std::unique_ptr<TaskRunner> taskRunner MSP_GUARDED_BY(mutex);
  GatheredData gatheredData MSP_GUARDED_BY(mutex);
  // Nothing ever sets it, on purpose: every refresh asks for the public address again.
  std::optional<std::chrono::system_clock::time_point> lastWanUpdate MSP_GUARDED_BY(mutex);
  std::optional<std::string> activeNetwork MSP_GUARDED_BY(mutex);
};

GatheredData DataGatherer::State::refresh() {
  const MutexLock lock(mutex);
  GatheredData& report = gatheredData;

  // What does not change is asked for until it is known.
  if (report.last_sw_update.empty()) collectLastSystemUpdate(report, host);
  if (report.cpu.empty()) collectProcessor(report, *taskRunner);
  if (report.os_version.empty()) collectSystemVersion(report, *taskRunner);
  if (report.hw_serial_number.empty() || report.hw_model.empty()) {
    collectHardwareIdentity(report, *taskRunner);
  }
  if (report.ram == 0) collectMemorySize(report, *taskRunner);

  collectComputerName(report, host);
  collectUserName(report, *taskRunner);
  collectLocalAddress(report, activeNetwork, *taskRunner);
  // What the look-up started here finds is for a later refresh.
  report.wan_ipv4_address = wanAddress.current();
  if (!isWanAddressRecent(lastWanUpdate, report.wan_ipv4_address, std::chrono::system_clock::now())) {
    wanAddress.startLookup();
  }
  collectUptime(report, host);
  collectLoadAverage(report, *taskRunner);
  collectFreeMemory(report, *taskRunner);
  collectDriveSpace(report, *taskRunner);

  report.time_stamp = std::chrono::system_clock::now();
  return report;
}

DataGatherer::DataGatherer(std::string agentVersion, const Host& host, HttpClient& http)
    : state_(std::make_shared<State>(std::move(agentVersion), host, http)), queue_("refresh") {}

void DataGatherer::gather(Completion completion) {
  const bool submitted =
      queue_.submit([state = state_, completion = std::move(completion)] { completion(state->refresh()); });
  if (!submitted) logEvent("Unable to refresh the report: no thread for it");
}

GatheredData DataGatherer::report() const {
  const MutexLock lock(state_->mutex);
  return state_->gatheredData;
}

}  // namespace msp
