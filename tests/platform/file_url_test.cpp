#include "platform/file_url.h"

#include <gtest/gtest.h>

namespace msp {
namespace {

TEST(FileUrl, namesAPathOfThisMachine) {
  struct Case {
    const char* name;
    std::string_view url;
    std::optional<std::string> path;
  };
  const Case cases[] = {
      {"an empty host", "file:///etc/hosts", "/etc/hosts"},
      {"no host", "file:/etc/hosts", "/etc/hosts"},
      {"this host by name", "file://localhost/etc/hosts", "/etc/hosts"},
      {"capitals", "FILE://LocalHost/Etc", "/Etc"},
      {"encoded octets", "file:///a%20b%c3%BC%2F%25", "/a b\u00FC/%"},
      {"a query", "file:///a?b", "/a"},
      {"a fragment", "file:///a#b", "/a"},
      {"an encoded question mark is the path's", "file:///a%3fb", "/a?b"},
      {"the root", "file:///", "/"},
      {"another host", "file://example.com/a", std::nullopt},
      {"a host that only begins alike", "file://localhosts/a", std::nullopt},
      {"a host alone", "file://localhost", std::nullopt},
      {"a relative path", "file:a", std::nullopt},
      {"nothing", "file:", std::nullopt},
      {"a NUL", "file:///a%00b", std::nullopt},
      {"a broken escape", "file:///a%2", std::nullopt},
      {"a blank", "file:///a b", std::nullopt},
      {"another scheme", "http:///a", std::nullopt},
      {"a scheme that only begins alike", "files:///a", std::nullopt},
      {"no scheme", "/a", std::nullopt},
      {"the empty text", "", std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(pathOfFileUrl(c.url), c.path) << c.name;
}

TEST(FileUrl, isToldByItsScheme) {
  EXPECT_TRUE(isFileUrl("file:relative"));
  EXPECT_TRUE(isFileUrl("File:///a"));
  EXPECT_FALSE(isFileUrl("file"));
  EXPECT_FALSE(isFileUrl("http://file:1/"));
  EXPECT_FALSE(isFileUrl(""));
}

}  // namespace
}  // namespace msp
