#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/network_interface.h"
#include "platform/host.h"

/// The Mac's network interfaces and what its tools say of each. A failed tool is one that says nothing.
namespace msp {

/// Every interface that has a name, in the system's order.
std::vector<NetworkInterface> getNetworkInterfaces(const Host& host);

struct InterfaceConfiguration {
  std::vector<std::string> addresses;  // the first IPv4 and the first IPv6 address, in this order
  bool isActive = false;
  bool operator==(const InterfaceConfiguration&) const = default;
};
/// From `ifconfig <name>`, ifconfig(8). A word that should be followed by a value and is the last one ends
/// the process.
InterfaceConfiguration parseInterfaceConfiguration(std::string_view output);

/// The IPv4 name servers, each once, from `scutil --dns`, scutil(8). IPv6 servers are left out.
std::vector<std::string> parseNameServers(std::string_view output);

/// The transmit rate in bits per second from `airport -I`; 0 when it does not say. A rate beyond 64 bits
/// ends the process.
std::int64_t parseTransmitRate(std::string_view output);

struct TrafficCounters {
  std::int64_t received = 0;  // bytes since boot
  std::int64_t sent = 0;      // bytes since boot
  bool operator==(const TrafficCounters&) const = default;
};
/// From the first line of `netstat -ib`, netstat(1), that begins with the name, which on purpose is also one
/// of "en10" for "en1". Zeros where a number does not parse, and for a line of less than eleven columns, as
/// an interface without hardware address has it.
TrafficCounters parseTrafficCounters(const std::vector<std::string_view>& lines, std::string_view name);

}  // namespace msp
