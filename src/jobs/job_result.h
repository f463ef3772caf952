#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "api/json_utilities.h"
#include "inventory/network_interface.h"
#include "inventory/sensor_data.h"
#include "inventory/storage_device.h"
#include "jobs/local_accounts.h"
#include "jobs/process_data.h"
#include "jobs/service.h"

namespace msp {

/// The outcome of one job. The field names are the JSON keys; an absent list has no key, a present but
/// empty one is [].
struct JobResult {
  std::int64_t id = 0;  // 0 when the job's id could not be read
  std::string message;
  std::int64_t success = 0;  // 1 or 0
  std::optional<std::vector<ProcessData>> processes = std::nullopt;
  std::optional<std::vector<StorageDevice>> storage_devices = std::nullopt;
  std::optional<std::vector<NetworkInterface>> network_interfaces = std::nullopt;
  std::optional<std::vector<Service>> services = std::nullopt;
  std::optional<std::vector<SensorData>> sensors = std::nullopt;
  std::optional<std::vector<UserData>> local_users = std::nullopt;
  std::optional<std::vector<GroupData>> local_groups = std::nullopt;

  bool operator==(const JobResult&) const = default;
};

void to_json(Json& json, const JobResult& result);

}  // namespace msp
