#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "api/json_utilities.h"

namespace msp {

/// One network interface. The field names are the JSON keys.
struct NetworkInterface {
  std::int64_t bytes_received = 0;  // since boot
  std::int64_t bytes_sent = 0;      // since boot
  std::vector<std::string> ip_addresses;
  std::vector<std::string> dhcp_addresses;
  std::vector<std::string> gateway_addresses;
  std::vector<std::string> dns_addresses;
  std::int64_t link = 0;  // 1 active, 0 not
  std::string mac_address;
  std::string name;
  std::int64_t speed = 0;  // bits per second
  std::string type;

  bool operator==(const NetworkInterface&) const = default;
};

void to_json(Json& json, const NetworkInterface& interface);

}  // namespace msp
