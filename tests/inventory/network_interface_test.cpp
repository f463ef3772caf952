#include "inventory/network_interface.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(NetworkInterface, everyFieldIsEncodedInItsOrder) {
  const NetworkInterface interface {
    .bytes_received = 9223372036854775807, .bytes_sent = 2, .ip_addresses = {"192.168.1.7", "fe80::1"},
    .dhcp_addresses = {"192.168.1.1"}, .gateway_addresses = {"192.168.1.2"},
    .dns_addresses = {"192.168.1.3", "192.168.1.4"}, .link = 1, .mac_address = "a0:78:17:5c:00:10",
    .name = "en1", .speed = 144000000, .type = "Wi-Fi"
  };
  EXPECT_EQ(
      Json(interface).dump(),
      R"({"bytes_received":9223372036854775807,"bytes_sent":2,"ip_addresses":["192.168.1.7","fe80::1"],)"
      R"("dhcp_addresses":["192.168.1.1"],"gateway_addresses":["192.168.1.2"],)"
      R"("dns_addresses":["192.168.1.3","192.168.1.4"],"link":1,"mac_address":"a0:78:17:5c:00:10",)"
      R"("name":"en1","speed":144000000,"type":"Wi-Fi"})");
}

TEST(NetworkInterface, anInterfaceWithNothingKnownButItsNameHasEveryKeyToo) {
  NetworkInterface interface;
  interface.name = "utun0";
  EXPECT_EQ(Json(interface).dump(),
            R"({"bytes_received":0,"bytes_sent":0,"ip_addresses":[],"dhcp_addresses":[],)"
            R"("gateway_addresses":[],"dns_addresses":[],"link":0,"mac_address":"","name":"utun0",)"
            R"("speed":0,"type":""})");
}

}  // namespace
}  // namespace msp
