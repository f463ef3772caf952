#include "jobs/job_result.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const JobResult& result) {
  // Without room for all fields each growth would copy the lists that are in already.
  constexpr std::size_t kFields = 10;
  Json::object_t object;
  object.reserve(kFields);
  object.emplace_back("id", result.id);
  object.emplace_back("message", result.message);
  object.emplace_back("success", result.success);
  if (result.processes) object.emplace_back("processes", *result.processes);
  if (result.storage_devices) object.emplace_back("storage_devices", *result.storage_devices);
  if (result.network_interfaces) object.emplace_back("network_interfaces", *result.network_interfaces);
  if (result.services) object.emplace_back("services", *result.services);
  if (result.sensors) object.emplace_back("sensors", *result.sensors);
  if (result.local_users) object.emplace_back("local_users", *result.local_users);
  if (result.local_groups) object.emplace_back("local_groups", *result.local_groups);
  json = std::move(object);
}

}  // namespace msp
