#include "inventory/network_inventory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/text.h"
#include "support/fake_host.h"
#include "support/machine_files.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kAirport =
    "/System/Library/PrivateFrameworks/Apple80211.framework/Versions/Current/Resources/airport -I";

TEST(ParseInterfaceConfiguration, theFirstAddressOfEachFamilyAndTheLink) {
  struct Case {
    std::string name, output;
    InterfaceConfiguration expected;
  };
  const Case cases[] = {
      {"nothing", "", {{}, false}},
      {"one address", "inet 10.0.0.2 netmask", {{"10.0.0.2"}, false}},
      {"the first of each family, IPv4 in front",
       "inet6 fe80::1%en0 prefixlen 64\n\tinet 10.0.0.2 netmask\n inet6 2001:db8::1 x\n inet 10.0.0.3 x",
       {{"10.0.0.2", "fe80::1%en0"}, false}},
      {"IPv6 alone", "inet6 ::1 prefixlen 128", {{"::1"}, false}},
      {"an address is taken as it stands", "inet not-an-address x", {{"not-an-address"}, false}},
      {"the key alone counts", "ainet 1 inetx 2 inet: 3", {{}, false}},
      {"active", "status: active", {{}, true}},
      {"inactive", "status: inactive", {{}, false}},
      {"only in these letters", "status: Active", {{}, false}},
      {"the first status counts", "status: inactive status: active", {{}, false}},
      {"the value may be on the next line", "inet\n\n10.0.0.2\n", {{"10.0.0.2"}, false}},
      {"white space of any kind cuts", "inet\u00A010.0.0.2\u2028", {{"10.0.0.2"}, false}},
  };
  for (const Case& row : cases) EXPECT_EQ(parseInterfaceConfiguration(row.output), row.expected) << row.name;
}

TEST(ParseInterfaceConfigurationDeathTest, aKeyWithNothingBehindItEndsTheProcess) {
  for (const char* const output : {"inet", "x inet6\n", "inet 1 status:"})
    EXPECT_DEATH(parseInterfaceConfiguration(output),
                 "^Nothing follows the last word of an interface's configuration\n$");
}

TEST(ParseNameServers, everyIPv4ServerOnce) {
  struct Case {
    std::string name, output;
    Lines expected;
  };
  const Case cases[] = {
      {"nothing", "", {}},
      {"one", "  nameserver[0] : 192.168.1.1", {"192.168.1.1"}},
      {"twice is once, and IPv6 is left out",
       "nameserver[0] : 192.168.1.1\nnameserver[1] : 2001:db8::53\nnameserver[0] : 192.168.1.1",
       {"192.168.1.1"}},
      {"IPv6 with one pair of colons", "nameserver[0] : fe80::1%en0", {}},
      {"several", "nameserver[0] : 9.9.9.9\nnameserver[1] : 1.1.1.1", {"9.9.9.9", "1.1.1.1"}},
      {"other lines", "flags : 192.168.1.1\nif_index : 12 (en0)", {}},
      {"the word may stand anywhere", "my nameservers are: 1.1.1.1", {"1.1.1.1"}},
      {"no colon", "nameserver 1.1.1.1", {}},
      {"colons in a row are one cut", "nameserver[0] :: 1.1.1.1", {"1.1.1.1"}},
      {"nothing behind the colon", "nameserver[0] :", {}},
      {"blanks and tabs are trimmed", "nameserver[0] :\t 1.1.1.1 \t", {"1.1.1.1"}},
  };
  for (const Case& row : cases) EXPECT_EQ(parseNameServers(row.output), row.expected) << row.name;
}

TEST(ParseTransmitRate, megabitsBecomeBits) {
  struct Case {
    std::string name, output;
    std::int64_t expected;
  };
  const Case cases[] = {
      {"a rate", "  maxRate: 867\n     lastTxRate: 144\n", 144000000},
      {"the first line counts", "lastTxRate: 1\nlastTxRate: 2", 1000000},
      {"none", "AirPort: Off", 0},
      {"nothing", "", 0},
      {"no value", "lastTxRate:", 0},
      {"no colon", "lastTxRate 144", 0},
      {"a second colon", "lastTxRate: 144:", 0},
      {"decimals", "lastTxRate: 144.4", 0},
      {"a unit", "lastTxRate: 144 Mbps", 0},
      {"blanks and tabs are trimmed", "lastTxRate:\t 144 ", 144000000},
      {"a negative rate", "lastTxRate: -1", -1000000},
      {"a first line without a number hides a second", "lastTxRate: x\nlastTxRate: 144", 0},
      {"a rate that is itself beyond 64 bits", "lastTxRate: 9223372036854775808", 0},
      {"the largest that fits", "lastTxRate: 9223372036854", 9223372036854000000},
  };
  for (const Case& row : cases) EXPECT_EQ(parseTransmitRate(row.output), row.expected) << row.name;
}

TEST(ParseTransmitRateDeathTest, aRateBeyond64BitsEndsTheProcess) {
  for (const char* const rate : {"9223372036855", "-9223372036855"})
    EXPECT_DEATH(parseTransmitRate(std::string("lastTxRate: ") + rate),
                 "^The wireless rate does not fit into 64 bits\n$");
}

TEST(ParseTrafficCounters, columnsSevenAndTenOfTheFirstLineThatBeginsWithTheName) {
  const std::string heading = "Name Mtu Network Address Ipkts Ierrs Ibytes Opkts Oerrs Obytes Coll\n";
  struct Case {
    std::string name, output;
    TrafficCounters expected;
  };
  const Case cases[] = {
      {"a line", heading + "en1 1500 <Link#1> aa:bb 1 0 700 2 0 1000 0", {700, 1000}},
      {"the first counts", "en1 a b c 1 0 7 2 0 10 0\nen1 a b c 1 0 8 2 0 11 0", {7, 10}},
      {"one of en10 does too", "en10 a b c 1 0 7 2 0 10 0\nen1 a b c 1 0 8 2 0 11 0", {7, 10}},
      {"a line of another", "en0 a b c 1 0 7 2 0 10 0\n en1 a b c 1 0 8 2 0 11 0", {0, 0}},
      {"white space of any kind cuts", "en1 a b c\u00A01 0 7\u30002 0 10 0", {7, 10}},
      {"ten columns are too few", "en1 a b 1 0 7 2 0 10 0", {0, 0}},
      {"twelve will do", "en1 a b c 1 0 7 2 0 10 0 12", {7, 10}},
      {"a number that does not parse is 0", "en1 a b c 1 0 - 2 0 10 0", {0, 10}},
      {"the other one too", "en1 a b c 1 0 7 2 0 1.5 0", {7, 0}},
      {"a first line that is short hides a second", "en1\nen1 a b c 1 0 7 2 0 10 0", {0, 0}},
      {"beyond 64 bits", "en1 a b c 1 0 9223372036854775808 2 0 10 0", {0, 10}},
      {"nothing", "", {0, 0}},
  };
  for (const Case& row : cases)
    EXPECT_EQ(parseTrafficCounters(lines(row.output), "en1"), row.expected) << row.name;
}

TEST(NetworkParsers, garbageIsNoConfiguration) {
  const std::string pieces[] = {"inet ", "inet6 ", "status: ", "active", "nameserver", ":",   "lastTxRate",
                                "1",     "12 ",    "\n",       " ",      "\xFF",       "en1", "\u2028"};
  std::mt19937 random(7);
  for (int round = 0; round < 5000; ++round) {
    std::string output;
    for (auto count = random() % 40; count > 0; --count) output += pieces[random() % std::size(pieces)];
    for (const std::string& server : parseNameServers(output))
      ASSERT_EQ(server.find(':'), std::string::npos) << output;
    ASSERT_EQ(parseTransmitRate(output) % 1000000, 0) << output;
    (void)parseTrafficCounters(lines(output), "en1");
    ASSERT_LE(parseInterfaceConfiguration(output + " end").addresses.size(), 2U) << output;
  }
}

TEST(NetworkParsers, wellFormedTextComesBackAsItWas) {
  std::mt19937_64 random(8);
  const auto number = [&random] { return static_cast<std::int64_t>(random() >> 1U); };
  for (int round = 0; round < 500; ++round) {
    std::string output;
    std::vector<TrafficCounters> counters;
    Lines servers;
    std::string resolvers;
    for (int i = 0; i < 9; ++i) {
      counters.push_back({number(), number()});
      output += "en" + std::to_string(i) + "  1500 <Link#4> aa:bb:cc " + std::to_string(number()) + " 0  " +
                std::to_string(counters.back().received) + "   7 0 " + std::to_string(counters.back().sent) +
                " 0\n";
      servers.push_back(std::to_string(random() % 256) + ".0.0." + std::to_string(i));
      resolvers += "  nameserver[" + std::to_string(i) + "] : " + servers.back() + "\n";
    }
    for (std::size_t i = 0; i < counters.size(); ++i)
      ASSERT_EQ(parseTrafficCounters(lines(output), "en" + std::to_string(i)), counters[i]);
    ASSERT_EQ(parseNameServers(resolvers), servers);
  }
}

NetworkInterface interfaceOf(const std::string& name, const std::string& address, const std::string& kind) {
  NetworkInterface interface;
  interface.name = name;
  interface.mac_address = address;
  interface.type = kind;
  return interface;
}

TEST(GetNetworkInterfaces, runsOnlyWhatEachInterfaceNeeds) {
  test::FakeHost host;
  host.interfaces = {{"en0", "aa:bb", "Ethernet"},
                     {std::nullopt, "cc:dd", "Nameless"},
                     {"en1", std::nullopt, std::nullopt},
                     {"en2", "ee:ff", ""}};
  host.runner().answer("ifconfig en0", "inet 10.0.0.2 x status: active");
  host.runner().answer("ipconfig getoption en0 router", "10.0.0.1");
  host.runner().answer("scutil --dns", "nameserver[0] : 10.0.0.53");
  host.runner().answer(kAirport, "lastTxRate: 144");
  host.runner().answer("netstat -ib", "en0 1500 <Link#1> aa:bb 1 0 700 2 0 1000 0");

  NetworkInterface en0 = interfaceOf("en0", "aa:bb", "Ethernet");
  en0.ip_addresses = {"10.0.0.2"};
  en0.dhcp_addresses = {""};
  en0.gateway_addresses = {"10.0.0.1"};
  en0.dns_addresses = {"10.0.0.53"};
  en0.link = 1;
  en0.bytes_received = 700;
  en0.bytes_sent = 1000;
  NetworkInterface en1 = interfaceOf("en1", "", "");
  en1.speed = 144000000;
  EXPECT_EQ(getNetworkInterfaces(host),
            (std::vector<NetworkInterface>{en0, en1, interfaceOf("en2", "ee:ff", "")}));
  EXPECT_EQ(host.runner().commandLines(), (Lines{"ifconfig en0", "ipconfig getoption en0 server_identifier",
                                                 "ipconfig getoption en0 router", "scutil --dns",
                                                 "ifconfig en1", kAirport, "ifconfig en2", "netstat -ib"}));
}

TEST(GetNetworkInterfaces, withoutInterfacesThereAreNone) {
  test::FakeHost host;
  EXPECT_EQ(getNetworkInterfaces(host), std::vector<NetworkInterface>{});
  host.interfaces = {{std::nullopt, "cc:dd", "Nameless"}};
  EXPECT_EQ(getNetworkInterfaces(host), std::vector<NetworkInterface>{});
  EXPECT_EQ(host.runner().commandLines(), Lines{});
}

TEST(GetNetworkInterfaces, onlyTheOneNamedEn1IsWireless) {
  test::FakeHost host;
  host.interfaces = {{"en10", "aa:bb", "Wi-Fi"}, {"en0", "aa:cc", "Wi-Fi"}};
  host.runner().answer(kAirport, "lastTxRate: 144");
  host.runner().answer("ifconfig en10", "inet 10.0.0.2");
  host.runner().answer("ifconfig en0", "inet6 ::1");
  for (const NetworkInterface& interface : getNetworkInterfaces(host)) EXPECT_EQ(interface.speed, 0);
  EXPECT_EQ(
      host.runner().commandLines(),
      (Lines{"ifconfig en10", "ipconfig getoption en10 server_identifier", "ipconfig getoption en10 router",
             "scutil --dns", "ifconfig en0", "ipconfig getoption en0 server_identifier",
             "ipconfig getoption en0 router", "scutil --dns", "netstat -ib"}));
  EXPECT_EQ(host.runnersMade(), 1);
}

TEST(GetNetworkInterfaces, ofThreeMachines) {
  for (const std::string machine : test::kMachines) {
    test::FakeHost host;
    const auto platform = nlohmann::json::parse(test::machineFile(machine, "platform.json"));
    for (const auto& interface : platform["interface_lists"][0]["interfaces"])
      host.interfaces.push_back({interface["bsd_name"].get<std::string>(),
                                 interface["mac"].get<std::string>(),
                                 interface["display"].get<std::string>()});
    for (const NetworkHardware& hardware : host.interfaces) {
      for (const std::string& line :
           {"ifconfig " + *hardware.name, "ipconfig getoption " + *hardware.name + " server_identifier",
            "ipconfig getoption " + *hardware.name + " router"})
        host.runner().answer(line, test::trimmedMachineOutput(machine, line));
    }
    for (const std::string line : {"scutil --dns", "netstat -ib"})
      host.runner().answer(line, test::trimmedMachineOutput(machine, line));
    host.runner().answer(kAirport, test::trimmedMachineOutput(machine, "airport -I"));

    const auto found = getNetworkInterfaces(host);
    ASSERT_EQ(found.size(), host.interfaces.size()) << machine;
    std::ifstream file(std::string(MSP_TEST_DATA) + "/network/" + machine + ".json");
    EXPECT_EQ(nlohmann::ordered_json(found).dump(1), nlohmann::ordered_json::parse(file).dump(1)) << machine;
  }
}

}  // namespace
}  // namespace msp
