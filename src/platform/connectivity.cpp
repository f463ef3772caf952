#include "platform/connectivity.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <memory>

namespace msp {
namespace {

/// The address as the record its family says it is; copied, since a sockaddr is of unknown alignment.
template <typename Record>
Record recordOf(const sockaddr& address) {
  Record record{};
  std::memcpy(&record, &address, sizeof record);
  return record;
}

bool isLinkLocal(const in_addr& address) {
  constexpr std::uint32_t kPrefix = 0xA9FE0000, kMask = 0xFFFF0000;  // 169.254.0.0/16
  return (ntohl(address.s_addr) & kMask) == kPrefix;
}

}  // namespace

bool isUsableAddress(unsigned int interfaceFlags, const sockaddr& address) {
  if ((interfaceFlags & IFF_LOOPBACK) != 0 || (interfaceFlags & IFF_UP) == 0 ||
      (interfaceFlags & IFF_RUNNING) == 0) {
    return false;
  }
  if (address.sa_family == AF_INET) return !isLinkLocal(recordOf<sockaddr_in>(address).sin_addr);
  if (address.sa_family != AF_INET6) return false;
  const auto record = recordOf<sockaddr_in6>(address);
  return !IN6_IS_ADDR_LINKLOCAL(&record.sin6_addr);
}

bool hasUsableNetwork() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return true;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, &freeifaddrs);
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr && isUsableAddress(entry->ifa_flags, *entry->ifa_addr)) return true;
  }
  return false;
}

}  // namespace msp
