#include <string>
#include <utility>
#include <vector>

#include "inventory/temperature_sensors.h"
#include "jobs/jobs_manager.h"
#include "platform/event_log.h"

namespace msp {

JobResult JobsManager::readSensors(const Job& job) const {
  const std::int64_t id = jobID(job);
  const auto found = readTemperatures(*host_, *host_->makeTaskRunner());
  if (!found || *found == Temperatures{}) {
    logEvent("No temperature sensors detected.");
    return failure(id, "No temperature sensors detected.");
  }
  std::vector<SensorData> sensors;
  if (found->cpu > 0) sensors.push_back({"CPU", "temperature", found->cpu, "CPU Package"});
  // Called so on Intel Macs too, on purpose.
  if (found->gpu > 0) sensors.push_back({"GpuApple", "temperature", found->gpu, "GPU Core"});
  return {.id = id, .message = "", .success = 1, .sensors = std::move(sensors)};
}

}  // namespace msp
