#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The system's own proxy settings. Safe on any thread.
namespace msp {

/// A proxy server; a port of 0 is the usual one of its kind.
struct ProxyServer {
  /// "http" or "socks5h" (the proxy looks the target's name up).
  std::string scheme;
  std::string host;
  int port = 0;
  bool operator==(const ProxyServer&) const = default;
};

/// What is set in the system's network preferences; a proxy that is switched off is not there.
struct ProxySettings {
  std::optional<ProxyServer> http;
  std::optional<ProxyServer> https;
  std::optional<ProxyServer> socks;
  /// Hosts that are reached without proxy: "*" stands for any characters, "169.254/16" for an IPv4 network.
  std::vector<std::string> exceptions;
  /// Whether hosts without a dot in their name are reached without proxy.
  bool excludesSimpleHostnames = false;
};

/// The proxy for a host, given without the brackets of an IPv6 address, or nothing: no proxy.
std::optional<ProxyServer> chooseProxy(const ProxySettings& settings, std::string_view scheme,
                                       const std::string& host);

/// What is set now. Systems without such settings have none.
ProxySettings systemProxySettings();

/// The proxy that the system's settings name now for a host.
std::optional<ProxyServer> systemProxyFor(const std::string& scheme, const std::string& host);

}  // namespace msp
