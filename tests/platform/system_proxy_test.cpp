#include "platform/system_proxy.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace msp::test {
namespace {

const ProxyServer kHttp{"http", "web.test", 3128};
const ProxyServer kHttps{"http", "secure.test", 3129};
const ProxyServer kSocks{"socks5h", "socks.test", 1080};

TEST(SystemProxy, eachSchemeHasItsOwnProxy) {
  ProxySettings settings;
  EXPECT_EQ(chooseProxy(settings, "http", "host.test"), std::nullopt);
  settings.https = kHttps;
  EXPECT_EQ(chooseProxy(settings, "http", "host.test"), std::nullopt);
  EXPECT_EQ(chooseProxy(settings, "https", "host.test"), kHttps);
  settings.http = kHttp;
  settings.socks = kSocks;
  EXPECT_EQ(chooseProxy(settings, "http", "host.test"), kHttp);
  EXPECT_EQ(chooseProxy(settings, "https", "host.test"), kHttps);
}

TEST(SystemProxy, theSocksProxyServesWhatHasNoOther) {
  ProxySettings settings;
  settings.http = kHttp;
  settings.socks = kSocks;
  EXPECT_EQ(chooseProxy(settings, "http", "host.test"), kHttp);
  EXPECT_EQ(chooseProxy(settings, "https", "host.test"), kSocks);
}

TEST(SystemProxy, exceptionsAreReachedDirectly) {
  struct Case {
    const char *name, *exception, *host;
    bool direct;
  };
  constexpr Case kCases[] = {
      {"the same name", "host.test", "host.test", true},
      {"the same name in another spelling", "Host.Test", "hOST.test", true},
      {"a name that ends alike is another one", "host.test", "my.host.test", false},
      {"a star stands for any characters", "*.local", "printer.local", true},
      {"even for dots", "*.local", "a.b.local", true},
      {"but not for the dot before", "*.local", "local", false},
      {"an IPv4 network", "169.254/16", "169.254.10.20", true},
      {"another network", "169.254/16", "169.253.10.20", false},
      {"a network written in full", "10.0.0.0/8", "10.200.3.4", true},
      {"a network of one address", "10.1.2.3/32", "10.1.2.4", false},
      {"a network with bits within an octet", "172.16/12", "172.31.0.1", true},
      {"a network is no name", "10/8", "10.example.com", false},
      {"a network without size is none", "10/", "10.1.2.3", false},
      {"a network of size 0 is none", "10/0", "10.1.2.3", false},
      {"a network of more than 32 bits is none", "10/33", "10.1.2.3", false},
      {"an IPv6 address", "::1", "::1", true},
      {"an empty exception is none", "", "host.test", false},
  };
  for (const auto& [name, exception, host, direct] : kCases) {
    ProxySettings settings;
    settings.http = kHttp;
    settings.exceptions = {"other.test", exception};
    EXPECT_EQ(chooseProxy(settings, "http", host), direct ? std::nullopt : std::optional(kHttp)) << name;
  }
}

TEST(SystemProxy, simpleHostNamesAreReachedDirectlyWhereThatIsSet) {
  ProxySettings settings;
  settings.http = kHttp;
  EXPECT_EQ(chooseProxy(settings, "http", "intranet"), kHttp);
  settings.excludesSimpleHostnames = true;
  EXPECT_EQ(chooseProxy(settings, "http", "intranet"), std::nullopt);
  EXPECT_EQ(chooseProxy(settings, "http", "intranet.test"), kHttp);
  EXPECT_EQ(chooseProxy(settings, "http", "::1"), kHttp);
}

}  // namespace
}  // namespace msp::test
