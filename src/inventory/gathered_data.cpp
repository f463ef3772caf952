#include "inventory/gathered_data.h"

#include <nlohmann/json.hpp>

#include <utility>

#include "platform/time_format.h"

namespace msp {

std::string GatheredData::jsonText() const { return prettyText(*this); }

void to_json(Json& json, const GatheredData& report) {
  // Without room for all fields each growth would copy the job results, thousands of processes maybe.
  constexpr std::size_t kFields = 26;
  Json::object_t object;
  object.reserve(kFields);
  object.emplace_back("agent_version", report.agent_version);
  object.emplace_back("job_results", report.job_results);
  object.emplace_back("agent_type", report.agent_type);
  object.emplace_back("get_jobs", report.get_jobs);
  object.emplace_back("primary_drive", report.primary_drive);
  object.emplace_back("ipv6_address", report.ipv6_address);
  object.emplace_back("wan_ipv6_address", report.wan_ipv6_address);
  object.emplace_back("hw_manufacturer", report.hw_manufacturer);
  object.emplace_back("last_sw_update", report.last_sw_update);
  object.emplace_back("cpu", report.cpu);
  object.emplace_back("os_version", report.os_version);
  object.emplace_back("hw_serial_number", report.hw_serial_number);
  object.emplace_back("hw_model", report.hw_model);
  object.emplace_back("ram", report.ram);
  object.emplace_back("os_name", report.os_name);
  object.emplace_back("os_build", report.os_build);
  object.emplace_back("name", report.name);
  object.emplace_back("username", report.username);
  object.emplace_back("ipv4_address", report.ipv4_address);
  object.emplace_back("wan_ipv4_address", report.wan_ipv4_address);
  object.emplace_back("uptime", report.uptime);
  object.emplace_back("load_average", report.load_average);
  object.emplace_back("free_ram", report.free_ram);
  object.emplace_back("primary_drive_size", report.primary_drive_size);
  object.emplace_back("primary_drive_free_space", report.primary_drive_free_space);
  object.emplace_back("time_stamp", formatTime(report.time_stamp));
  json = std::move(object);
}

}  // namespace msp
