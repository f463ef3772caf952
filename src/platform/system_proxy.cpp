#include "platform/system_proxy.h"

#include <arpa/inet.h>
#include <fnmatch.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdint>

#include "platform/text.h"

namespace msp {
namespace {

std::optional<std::uint32_t> ipV4Address(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

/// Whether the host is an IPv4 address of a network such as "169.254/16".
bool isInNetwork(const std::string& host, const std::string& network) {
  const auto address = ipV4Address(host);
  const auto pieces = split(network, '/');
  if (!address || pieces.size() != 2) return false;
  std::string prefix(pieces[0]);
  for (auto dots = std::count(prefix.begin(), prefix.end(), '.'); dots < 3; ++dots) prefix += ".0";
  const auto networkAddress = ipV4Address(prefix);
  const auto bits = parseInteger(pieces[1]);
  constexpr std::int64_t kAddressBits = 32;
  if (!networkAddress || !bits || *bits < 1 || *bits > kAddressBits) return false;
  const std::uint32_t mask = ~std::uint32_t{0} << (kAddressBits - *bits);
  return (*address & mask) == (*networkAddress & mask);
}

bool isException(const ProxySettings& settings, const std::string& host) {
  if (settings.excludesSimpleHostnames && host.find_first_of(".:") == std::string::npos) return true;
  return std::any_of(
      settings.exceptions.begin(), settings.exceptions.end(), [&](const std::string& exception) {
        return fnmatch(exception.c_str(), host.c_str(), FNM_CASEFOLD) == 0 || isInNetwork(host, exception);
      });
}

}  // namespace

std::optional<ProxyServer> chooseProxy(const ProxySettings& settings, std::string_view scheme,
                                       const std::string& host) {
  if (isException(settings, host)) return std::nullopt;
  if (scheme == "http" && settings.http) return settings.http;
  if (scheme == "https" && settings.https) return settings.https;
  return settings.socks;
}

std::optional<ProxyServer> systemProxyFor(const std::string& scheme, const std::string& host) {
  return chooseProxy(systemProxySettings(), scheme, host);
}

}  // namespace msp
