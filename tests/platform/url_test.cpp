#include "platform/url.h"

#include <gtest/gtest.h>

#include <string>

namespace msp::test {
namespace {

struct Case {
  std::string_view name, text;
  bool expected;
};

constexpr Case kCases[] = {
    {"the empty text is none", "", false},
    {"the ordinary case", "https://manage.example.com/api.php", true},
    {"a port", "http://127.0.0.1:8080/", true},
    {"a port may be empty", "http://host:/", true},
    {"a port is digits", "http://host:8a/", false},
    {"a port of more than 16 bits still parses", "http://host:99999/", true},
    {"two ports are none", "http://host:80:80/", false},
    {"user and password", "http://user:pw@host/", true},
    {"two at signs are none", "http://a@b@c/", false},
    {"a host may be empty", "file:///etc/hosts", true},
    {"nothing after the slashes", "http://", true},
    {"an IPv6 address in brackets", "http://[::1]:80/", true},
    {"an IPv6 address with an IPv4 tail", "http://[::ffff:127.0.0.1]/", true},
    {"an IPv6 address without brackets is none", "http://::1/", false},
    {"an IPv6 address with too many groups is none", "http://[1:2:3:4:5:6:7:8:9]/", false},
    {"an IPv6 address with a zone is none", "http://[fe80::1%25en0]/", false},
    {"an IPv4 address in brackets is none", "http://[127.0.0.1]/", false},
    {"an address of the future", "http://[v1.a:b]/", true},
    {"an address of the future without version is none", "http://[v.a]/", false},
    {"an address of the future without address is none", "http://[v1.]/", false},
    {"an open bracket is none", "http://[::1/", false},
    {"text behind the bracket is none", "http://[::1]x/", false},
    {"a bracket in the path is none", "http://host/[a]", false},
    {"query and fragment", "http://host/path?a=b&c=/?#top/?", true},
    {"two fragments are none", "http://host/#a#b", false},
    {"a percent-encoded octet", "http://host/a%20b", true},
    {"a percent-encoded octet in the host", "http://h%C3%BCst/", true},
    {"half a percent-encoded octet is none", "http://host/a%2", false},
    {"a percent sign alone is none", "http://host/100%", false},
    {"a percent sign with other letters is none", "http://host/%zz", false},
    {"a path without scheme", "/path/to", true},
    {"a name without scheme", "example.com", true},
    {"a server without scheme", "//host/path", true},
    {"a query alone", "?a=b", true},
    {"a fragment alone", "#top", true},
    {"a scheme alone", "http:", true},
    {"a scheme without slashes", "mailto:anna@example.com", true},
    {"a scheme with digits and signs", "a1+-.:x", true},
    {"a scheme that begins with a digit is none", "1a:x", false},
    {"a colon at the start is none", ":x", false},
    {"a host with port but without scheme is none", "127.0.0.1:80", false},
    {"a colon behind a slash is part of the path", "./a:b", true},
    {"a blank is none", "http://host/a b", false},
    {"a blank at the end is none", "http://host/ ", false},
    {"a line feed at the end is none", "http://host/\n", false},
    {"a tab is none", "http://ho\tst/", false},
    {"a NUL is none", std::string_view("http://host/\0", 13), false},
    {"a DEL is none", "http://host/\x7f", false},
    {"characters beyond ASCII are none", "http://h\xC3\xBCst/", false},
    {"quotation marks are none", "http://host/\"a\"", false},
    {"angle brackets are none", "<http://host/>", false},
    {"a backslash is none", "http:\\\\host\\", false},
    {"braces are none", "http://host/{id}", false},
    {"a caret is none", "http://host/^", false},
    {"a bar is none", "http://host/a|b", false},
    {"a back quote is none", "http://host/`", false},
    {"all that a path may hold", "http://host/-._~!$&'()*+,;=:@/", true},
};

TEST(Url, isAnRfc3986Reference) {
  for (const auto& [name, text, expected] : kCases) EXPECT_EQ(isUrl(text), expected) << name;
}

}  // namespace
}  // namespace msp::test
