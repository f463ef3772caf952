#include "platform/connectivity.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

namespace msp::test {
namespace {

constexpr unsigned int kConnected = IFF_UP | IFF_RUNNING;

bool isUsable(unsigned int flags, const char* text) {
  sockaddr_storage storage{};
  sockaddr_in v4{};
  sockaddr_in6 v6{};
  if (inet_pton(AF_INET, text, &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    std::memcpy(&storage, &v4, sizeof v4);
  } else if (inet_pton(AF_INET6, text, &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    std::memcpy(&storage, &v6, sizeof v6);
  } else {
    storage.ss_family = AF_UNIX;
  }
  return isUsableAddress(flags, reinterpret_cast<const sockaddr&>(storage));
}

TEST(Connectivity, anAddressCountsWhenItLeadsOutOfTheMachine) {
  struct Case {
    const char* name;
    unsigned int flags;
    const char* address;
    bool expected;
  };
  constexpr Case kCases[] = {
      {"an IPv4 address", kConnected, "192.168.1.20", true},
      {"an IPv6 address", kConnected, "2001:db8::1", true},
      {"a unique local IPv6 address", kConnected, "fd00::1", true},
      {"the loopback's address does not", kConnected | IFF_LOOPBACK, "127.0.0.1", false},
      {"an interface that is switched off does not", IFF_RUNNING, "192.168.1.20", false},
      {"an interface without cable does not", IFF_UP, "192.168.1.20", false},
      {"a self-assigned IPv4 address does not", kConnected, "169.254.7.7", false},
      {"its neighbours do", kConnected, "169.253.7.7", true},
      {"a link-local IPv6 address does not", kConnected, "fe80::1", false},
      {"an address of another family does not", kConnected, "a link-layer address", false},
  };
  for (const auto& [name, flags, address, expected] : kCases) {
    EXPECT_EQ(isUsable(flags, address), expected) << name;
  }
}

}  // namespace
}  // namespace msp::test
