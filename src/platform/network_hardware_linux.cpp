#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "platform/file_system.h"
#include "platform/network_hardware.h"
#include "platform/text.h"

namespace msp {
namespace {

std::optional<std::string> addressText(const sockaddr_ll& link) {
  if (link.sll_halen == 0) return std::nullopt;
  std::string text;
  for (std::size_t i = 0; i < std::min<std::size_t>(link.sll_halen, sizeof link.sll_addr); ++i) {
    std::array<char, 4> byte{};
    std::snprintf(byte.data(), byte.size(), "%02x", link.sll_addr[i]);
    text += (i == 0 ? "" : ":") + std::string(byte.data());
  }
  return text;
}

std::optional<std::string> kindOf(const std::string& name, const sockaddr_ll& link) {
  const std::string attributes = "/sys/class/net/" + name;
  if (fileExists(attributes + "/phy80211") || fileExists(attributes + "/wireless")) return "Wi-Fi";
  if (fileExists(attributes + "/bridge")) return "Bridge";
  if (link.sll_hatype == ARPHRD_ETHER) return "Ethernet";
  return std::nullopt;
}

}  // namespace

std::vector<NetworkHardware> networkHardware() {
  ifaddrs* addresses = nullptr;
  if (getifaddrs(&addresses) != 0) return {};
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(addresses, freeifaddrs);
  std::map<int, NetworkHardware> byIndex;
  for (const ifaddrs* entry = addresses; entry != nullptr; entry = entry->ifa_next) {
    if ((entry->ifa_flags & IFF_LOOPBACK) != 0) continue;
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET) continue;
    sockaddr_ll link{};
    std::memcpy(&link, entry->ifa_addr, sizeof link);
    const std::string name = repairText(entry->ifa_name);
    byIndex[link.sll_ifindex] = {name, addressText(link), kindOf(name, link)};
  }
  std::vector<NetworkHardware> found;
  found.reserve(byIndex.size());
  for (auto& [index, hardware] : byIndex) found.push_back(std::move(hardware));
  return found;
}

}  // namespace msp
