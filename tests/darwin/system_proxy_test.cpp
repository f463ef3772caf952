#include "platform/system_proxy.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/darwin/every_failure.h"

namespace msp::test {
namespace {

using Entries = std::vector<std::pair<MacValue, MacValue>>;

/// The three entries of one kind of proxy, as the network preferences write them.
Entries proxy(const std::u16string& word, MacValue enabled, MacValue host, MacValue port) {
  return {{text(word + u"Enable"), std::move(enabled)},
          {text(word + u"Proxy"), std::move(host)},
          {text(word + u"Port"), std::move(port)}};
}

Entries joined(std::vector<Entries> lists) {
  Entries all;
  for (Entries& list : lists) {
    for (auto& entry : list) all.push_back(std::move(entry));
  }
  return all;
}

std::optional<ProxyServer> httpProxyOf(const Entries& entries) {
  SimulatedMac::current().proxies = dictionary(entries);
  const ProxySettings settings = systemProxySettings();
  EXPECT_EQ(settings.https, std::nullopt);
  EXPECT_EQ(settings.socks, std::nullopt);
  return settings.http;
}

TEST(SystemProxyOfAMac, isReadFromItsThreeEntries) {
  struct Case {
    const char* name;
    Entries entries;
    std::optional<ProxyServer> expected;
  };
  const MacValue on = integer(1);
  const MacValue host = text(u"web.test");
  const MacValue port = integer(3128);
  const Case cases[] = {
      {"one that is on", proxy(u"HTTP", on, host, port), ProxyServer{"http", "web.test", 3128}},
      {"one that is off", proxy(u"HTTP", integer(0), host, port), std::nullopt},
      {"one that is not said to be on", proxy(u"HTTP", nothing(), host, port), std::nullopt},
      {"any number but 0 is on", proxy(u"HTTP", integer(std::int64_t{1} << 32), host, port),
       ProxyServer{"http", "web.test", 3128}},
      {"on as a fraction without one", proxy(u"HTTP", fraction(1), host, port),
       ProxyServer{"http", "web.test", 3128}},
      {"on as a text is not on", proxy(u"HTTP", text(u"1"), host, port), std::nullopt},
      {"no host", proxy(u"HTTP", on, nothing(), port), std::nullopt},
      {"an empty host", proxy(u"HTTP", on, text(u""), port), std::nullopt},
      {"a host that is no text", proxy(u"HTTP", on, integer(7), port), std::nullopt},
      {"a host in another script", proxy(u"HTTP", on, text(u"\u043F\u0440\u043E\u043A\u0441\u0438"), port),
       ProxyServer{"http", "\u043F\u0440\u043E\u043A\u0441\u0438", 3128}},
      {"no port is the usual one", proxy(u"HTTP", on, host, nothing()), ProxyServer{"http", "web.test", 0}},
      {"so is a port that is no number", proxy(u"HTTP", on, host, text(u"3128")),
       ProxyServer{"http", "web.test", 0}},
      {"so is a port with a fraction", proxy(u"HTTP", on, host, fraction(80.5)),
       ProxyServer{"http", "web.test", 0}},
      {"so is a negative port", proxy(u"HTTP", on, host, integer(-1)), ProxyServer{"http", "web.test", 0}},
      {"so is a port beyond the last", proxy(u"HTTP", on, host, integer(65536)),
       ProxyServer{"http", "web.test", 0}},
      {"so is one far beyond it", proxy(u"HTTP", on, host, integer((std::int64_t{1} << 32) + 80)),
       ProxyServer{"http", "web.test", 0}},
      {"the last port", proxy(u"HTTP", on, host, integer(65535)), ProxyServer{"http", "web.test", 65535}},
      {"keys that are no texts", {{integer(1), integer(1)}, {date(0), text(u"a")}}, std::nullopt},
      {"no entries", {}, std::nullopt},
  };
  for (const Case& row : cases) EXPECT_EQ(httpProxyOf(row.entries), row.expected) << row.name;
}

TEST(SystemProxyOfAMac, isAnotherForEachScheme) {
  SimulatedMac::current().proxies =
      dictionary(joined({proxy(u"HTTP", integer(1), text(u"web.test"), integer(3128)),
                         proxy(u"HTTPS", integer(1), text(u"secure.test"), integer(3129)),
                         proxy(u"SOCKS", integer(1), text(u"socks.test"), integer(1080))}));
  const ProxySettings settings = systemProxySettings();
  EXPECT_EQ(settings.http, (ProxyServer{"http", "web.test", 3128}));
  EXPECT_EQ(settings.https, (ProxyServer{"http", "secure.test", 3129}));
  EXPECT_EQ(settings.socks, (ProxyServer{"socks5h", "socks.test", 1080}));
  EXPECT_EQ(settings.exceptions, std::vector<std::string>());
  EXPECT_FALSE(settings.excludesSimpleHostnames);
  EXPECT_EQ(systemProxyFor("https", "host.test"), settings.https);
}

TEST(SystemProxyOfAMac, hasExceptions) {
  struct Case {
    const char* name;
    MacValue given;
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      {"texts in their order", array({text(u"*.local"), text(u"169.254/16")}), {"*.local", "169.254/16"}},
      {"what is no text is left out",
       array({integer(1), text(u"a.test"), nothing(), array({text(u"b.test")})}),
       {"a.test"}},
      {"an empty list", array({}), {}},
      {"a text instead of a list", text(u"*.local"), {}},
      {"a dictionary instead of a list", dictionary({{text(u"a"), text(u"b")}}), {}},
      {"none", nothing(), {}},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().proxies = dictionary({{text(u"ExceptionsList"), row.given}});
    EXPECT_EQ(systemProxySettings().exceptions, row.expected) << row.name;
  }
}

TEST(SystemProxyOfAMac, mayLeaveOutSimpleHostNames) {
  struct Case {
    const char* name;
    MacValue given;
    bool expected;
  };
  const Case cases[] = {
      {"on", integer(1), true},   {"off", integer(0), false},        {"on as a text", text(u"1"), false},
      {"none", nothing(), false}, {"a truth value", truth(), false},
  };
  for (const Case& row : cases) {
    SimulatedMac::current().proxies = dictionary({{text(u"ExcludeSimpleHostnames"), row.given}});
    EXPECT_EQ(systemProxySettings().excludesSimpleHostnames, row.expected) << row.name;
  }
}

TEST(SystemProxyOfAMac, isNoneWithoutSettings) {
  for (const auto& given : {std::optional<MacValue>(), std::optional(array({})), std::optional(text(u"a"))}) {
    SimulatedMac::current().proxies = given;
    EXPECT_EQ(systemProxyFor("https", "host.test"), std::nullopt);
  }
}

TEST(SystemProxyOfAMac, survivesEveryFailure) {
  const ProxyServer web{"http", "web.test", 3128};
  withEveryFailure(
      [](SimulatedMac& mac) {
        mac.proxies = dictionary(joined({proxy(u"HTTP", integer(1), text(u"web.test"), integer(3128)),
                                         {{text(u"ExceptionsList"), array({text(u"*.local")})},
                                          {text(u"ExcludeSimpleHostnames"), integer(1)}}}));
      },
      [&](int failing) {
        const ProxySettings settings = systemProxySettings();
        // The calls that can fail: the settings, and the key of each entry.
        const std::optional<ProxyServer> withoutPort = ProxyServer{"http", "web.test", 0};
        const bool lacksServer = failing >= 1 && failing <= 3;
        EXPECT_EQ(settings.http, lacksServer ? std::nullopt : failing == 4 ? withoutPort : web) << failing;
        EXPECT_EQ(settings.excludesSimpleHostnames, failing != 1 && failing != 7) << failing;
        EXPECT_EQ(settings.exceptions.size(), failing == 1 || failing == 8 ? 0U : 1U) << failing;
      });
}

}  // namespace
}  // namespace msp::test
