#include "platform/network_hardware.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "support/darwin/every_failure.h"

namespace msp::test {
namespace {

using Hardware = std::vector<NetworkHardware>;

TEST(NetworkHardwareOfAMac, isWhatTheSystemLists) {
  struct Case {
    const char* name;
    std::optional<MacValue> given;
    Hardware expected;
  };
  const Case cases[] = {
      {"two interfaces in the system's order",
       array({interface(u"en1", u"4c:32:75:10:aa:02", u"Wi-Fi"),
              interface(u"en0", u"4c:32:75:10:aa:01", u"Ethernet")}),
       {{"en1", "4c:32:75:10:aa:02", "Wi-Fi"}, {"en0", "4c:32:75:10:aa:01", "Ethernet"}}},
      {"one without a name",
       array({interface(std::nullopt, u"4c:32:75:10:aa:01", u"Modem")}),
       {{std::nullopt, "4c:32:75:10:aa:01", "Modem"}}},
      {"one without a hardware address",
       array({interface(u"utun0", std::nullopt, u"VPN")}),
       {{"utun0", std::nullopt, "VPN"}}},
      {"one without a display name",
       array({interface(u"en5", u"4c:32:75:10:aa:05", std::nullopt)}),
       {{"en5", "4c:32:75:10:aa:05", std::nullopt}}},
      {"one with nothing at all",
       array({interface(std::nullopt, std::nullopt, std::nullopt)}),
       {{std::nullopt, std::nullopt, std::nullopt}}},
      {"empty texts are texts", array({interface(u"", u"", u"")}), {{"", "", ""}}},
      {"display names in other scripts",
       array({interface(u"en0", std::nullopt, u"\u4EE5\u592A\u7F51"),
              interface(u"en1", std::nullopt, u"\u0625\u064A\u062B\u0631\u0646\u062A"),
              interface(u"en2", std::nullopt, u"\U0001F4F6")}),
       {{"en0", std::nullopt, "\u4EE5\u592A\u7F51"},
        {"en1", std::nullopt, "\u0625\u064A\u062B\u0631\u0646\u062A"},
        {"en2", std::nullopt, "\U0001F4F6"}}},
      {"halves of pairs", array({interface(u"en\xD800", u"\xDC00:", u"a\xD800z")}), {{"en?", "?:", "a?z"}}},
      {"an element that is no interface is left out",
       array({text(u"en9"), interface(u"en0", std::nullopt, std::nullopt), dictionary({})}),
       {{"en0", std::nullopt, std::nullopt}}},
      {"so is one that is nothing",
       array({nothing(), interface(u"en0", std::nullopt, std::nullopt)}),
       {{"en0", std::nullopt, std::nullopt}}},
      {"an empty list", array({}), {}},
      {"no list", std::nullopt, {}},
      {"a list that is none", dictionary({}), {}},
      {"a text for a list", text(u"en0"), {}},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().interfaces = row.given;
    EXPECT_EQ(networkHardware(), row.expected) << row.name;
  }
}

TEST(NetworkHardwareOfAMac, lacksWhatTheSystemFailsToSay) {
  const NetworkHardware ethernet{"en0", "4c:32:75:10:aa:01", "Ethernet"};
  const NetworkHardware wifi{"en1", "4c:32:75:10:aa:02", "Wi-Fi"};
  std::vector<Hardware> expected = {{ethernet, wifi}, {}};
  for (auto part : {&NetworkHardware::name, &NetworkHardware::address, &NetworkHardware::kind}) {
    expected.push_back({ethernet, wifi});
    (expected.back()[0].*part).reset();
  }
  for (auto part : {&NetworkHardware::name, &NetworkHardware::address, &NetworkHardware::kind}) {
    expected.push_back({ethernet, wifi});
    (expected.back()[1].*part).reset();
  }
  std::vector<Hardware> found;
  withEveryFailure(
      [](SimulatedMac& mac) {
        mac.interfaces = array({interface(u"en0", u"4c:32:75:10:aa:01", u"Ethernet"),
                                interface(u"en1", u"4c:32:75:10:aa:02", u"Wi-Fi")});
      },
      [&](int /*failing*/) { found.push_back(networkHardware()); });
  EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace msp::test
