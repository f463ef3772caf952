#include "inventory/network_interface.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const NetworkInterface& interface) {
  Json::object_t object;
  object.emplace_back("bytes_received", interface.bytes_received);
  object.emplace_back("bytes_sent", interface.bytes_sent);
  object.emplace_back("ip_addresses", interface.ip_addresses);
  object.emplace_back("dhcp_addresses", interface.dhcp_addresses);
  object.emplace_back("gateway_addresses", interface.gateway_addresses);
  object.emplace_back("dns_addresses", interface.dns_addresses);
  object.emplace_back("link", interface.link);
  object.emplace_back("mac_address", interface.mac_address);
  object.emplace_back("name", interface.name);
  object.emplace_back("speed", interface.speed);
  object.emplace_back("type", interface.type);
  json = std::move(object);
}

}  // namespace msp
