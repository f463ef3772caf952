#pragma once

#include <optional>
#include <string>
#include <vector>

namespace msp {

/// A network interface as the system knows it, whatever its state.
struct NetworkHardware {
  std::optional<std::string> name;     // "en0"
  std::optional<std::string> address;  // hardware address, "4c:32:75:10:aa:01"
  std::optional<std::string> kind;     // what people call it, in their language: "Wi-Fi"
  bool operator==(const NetworkHardware&) const = default;
};

/// Every interface in the system's own order (on Linux by index, the loopback left out); empty when the
/// system gives none. Safe on any thread.
std::vector<NetworkHardware> networkHardware();

}  // namespace msp
