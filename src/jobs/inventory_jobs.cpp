#include <string>
#include <utility>

#include "inventory/network_inventory.h"
#include "inventory/storage_inventory.h"
#include "jobs/jobs_manager.h"

namespace msp {

JobResult JobsManager::listStorageDevices(const Job& job) const {
  const std::int64_t id = jobID(job);
  auto devices = getStorageDevices(*host_);
  if (devices.empty()) return failure(id, "No storage devices detected.");
  return {.id = id, .message = "", .success = 1, .storage_devices = std::move(devices)};
}

JobResult JobsManager::listNetworkInterfaces(const Job& job) const {
  const std::int64_t id = jobID(job);
  auto interfaces = getNetworkInterfaces(*host_);
  if (interfaces.empty()) return failure(id, "No network interfaces detected.");
  return {.id = id, .message = "", .success = 1, .network_interfaces = std::move(interfaces)};
}

}  // namespace msp
