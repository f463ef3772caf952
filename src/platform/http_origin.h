#pragma once

#include <optional>
#include <string>

namespace msp {

/// The server that an absolute http or https URL names, as libcurl reads it.
struct HttpOrigin {
  /// "http" or "https".
  std::string scheme;
  /// In lower case, an IPv6 address without brackets.
  std::string host;
  /// Decimal; the scheme's own when the URL has none.
  std::string port;
  bool operator==(const HttpOrigin&) const = default;
};

/// Nothing when the URL has no scheme, another scheme, or does not parse, or when its host is not ASCII.
/// Safe on any thread.
std::optional<HttpOrigin> httpOrigin(const std::string& url);

/// Whether the host is an IPv4 or IPv6 address, without brackets, so that nobody needs to look it up.
bool isNumericHost(const std::string& host);

}  // namespace msp
