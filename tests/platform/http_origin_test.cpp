#include "platform/http_origin.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace msp::test {
namespace {

TEST(HttpOrigin, isSchemeHostAndPortOfAUrl) {
  struct Case {
    std::string_view name;
    std::string url;
    std::optional<HttpOrigin> expected;
  };
  const Case cases[] = {
      {"http has port 80", "http://host/path", HttpOrigin{"http", "host", "80"}},
      {"https has port 443", "https://host", HttpOrigin{"https", "host", "443"}},
      {"a port of its own", "http://host:8080/", HttpOrigin{"http", "host", "8080"}},
      {"spelling does not matter", "HTTP://Host.Example/", HttpOrigin{"http", "host.example", "80"}},
      {"an IPv6 address stands without brackets", "http://[::1]:81/", HttpOrigin{"http", "::1", "81"}},
      {"user and password are no part of it", "http://u:p@host/", HttpOrigin{"http", "host", "80"}},
      {"another scheme", "ftp://host/", std::nullopt},
      {"a file", "file:///etc/hosts", std::nullopt},
      {"no scheme", "host/path", std::nullopt},
      {"no host", "http:///", std::nullopt},
      {"a port that is none", "http://host:99999/", std::nullopt},
      {"a host beyond ASCII", "http://h\xC3\xBCst/", std::nullopt},
      {"the empty text", "", std::nullopt},
  };
  for (const auto& [name, url, expected] : cases) EXPECT_EQ(httpOrigin(url), expected) << name;
}

TEST(HttpOrigin, addressesNeedNoLookup) {
  for (const char* host : {"127.0.0.1", "::1", "fe80::1", "fe80::1%en0"})
    EXPECT_TRUE(isNumericHost(host)) << host;
  for (const char* host : {"", "localhost", "1.2.3", "1.2.3.4.5", "1.2.3.example"}) {
    EXPECT_FALSE(isNumericHost(host)) << host;
  }
}

}  // namespace
}  // namespace msp::test
