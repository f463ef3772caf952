#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "api/json_utilities.h"
#include "jobs/job_result.h"

namespace msp {

/// The inventory report of a check-in. The field names are the JSON keys, in this order.
struct GatheredData {
  std::string agent_version;
  std::vector<JobResult> job_results;
  std::string agent_type = "xcode";
  std::string get_jobs = "false";  // a text: the server expects this literal
  std::string primary_drive = "/";
  std::string ipv6_address;      // not collected
  std::string wan_ipv6_address;  // not collected
  std::string hw_manufacturer = "Apple Inc";
  std::string last_sw_update;
  std::string cpu;
  std::string os_version;
  std::string hw_serial_number;
  std::string hw_model;
  std::int64_t ram = 0;  // bytes
  std::string os_name;
  std::string os_build;  // the product version, in spite of its name
  std::string name;
  std::string username;
  std::string ipv4_address;
  std::string wan_ipv4_address;
  double uptime = 0;  // seconds
  std::string load_average;
  std::int64_t free_ram = 0;                  // bytes
  std::int64_t primary_drive_size = 0;        // bytes
  std::int64_t primary_drive_free_space = 0;  // bytes
  std::chrono::system_clock::time_point time_stamp = std::chrono::system_clock::now();

  bool operator==(const GatheredData&) const = default;

  /// The report as pretty-printed JSON text; "" when a text in it is not well-formed UTF-8.
  [[nodiscard]] std::string jsonText() const;
};

void to_json(Json& json, const GatheredData& report);

}  // namespace msp
