#include "platform/network_hardware.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <algorithm>
#include <cctype>
#include <string>

namespace msp {
namespace {

TEST(NetworkHardware, isEveryInterfaceButTheLoopbackByIndex) {
  unsigned int last = 0;
  for (const NetworkHardware& hardware : networkHardware()) {
    ASSERT_TRUE(hardware.name);
    EXPECT_NE(*hardware.name, "lo");
    const unsigned int index = if_nametoindex(hardware.name->c_str());
    EXPECT_GT(index, last) << *hardware.name;
    last = index;
  }
}

TEST(NetworkHardware, addressesAreInLowerCaseWithColons) {
  for (const NetworkHardware& hardware : networkHardware()) {
    if (!hardware.address) continue;
    const std::string& address = *hardware.address;
    EXPECT_EQ(address.size() % 3, 2U) << address;
    for (std::size_t i = 0; i < address.size(); ++i) {
      if (i % 3 == 2) {
        EXPECT_EQ(address[i], ':') << address;
      } else {
        EXPECT_NE(std::string("0123456789abcdef").find(address[i]), std::string::npos) << address;
      }
    }
  }
}

}  // namespace
}  // namespace msp
