#include <SystemConfiguration/SystemConfiguration.h>

#include <cstdint>
#include <limits>
#include <utility>

#include "platform/core_foundation.h"
#include "platform/system_proxy.h"

namespace msp {
namespace {

/// The dictionary's value under a key, if it is of that type; it lives as long as the dictionary.
template <typename Ref>
Ref valueOf(CFDictionaryRef dictionary, const char* key, CFTypeID type) {
  const CFOwned<CFStringRef> keyText(
      CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8));
  if (!keyText) return nullptr;
  const void* const value = CFDictionaryGetValue(dictionary, keyText.get());
  return isOfType(value, type) ? static_cast<Ref>(value) : nullptr;
}

/// 0 when there is no whole number.
std::int64_t numberUnder(CFDictionaryRef dictionary, const std::string& key) {
  const auto* const number = valueOf<CFNumberRef>(dictionary, key.c_str(), CFNumberGetTypeID());
  std::int64_t value = 0;
  if (number == nullptr || CFNumberGetValue(number, kCFNumberSInt64Type, &value) == 0) return 0;
  return value;
}

/// What is no port is the usual one.
int portUnder(CFDictionaryRef dictionary, const std::string& key) {
  const std::int64_t port = numberUnder(dictionary, key);
  return port > 0 && port <= std::numeric_limits<std::uint16_t>::max() ? static_cast<int>(port) : 0;
}

/// The server whose keys begin with a word, for instance "HTTP": HTTPEnable, HTTPProxy, HTTPPort.
std::optional<ProxyServer> serverOf(CFDictionaryRef dictionary, const std::string& word, std::string scheme) {
  if (numberUnder(dictionary, word + "Enable") == 0) return std::nullopt;
  const auto* const host = valueOf<CFStringRef>(dictionary, (word + "Proxy").c_str(), CFStringGetTypeID());
  if (host == nullptr || CFStringGetLength(host) == 0) return std::nullopt;
  return ProxyServer{std::move(scheme), textOf(host), portUnder(dictionary, word + "Port")};
}

}  // namespace

ProxySettings systemProxySettings() {
  const CFOwned<CFDictionaryRef> dictionary(SCDynamicStoreCopyProxies(nullptr));
  if (!isOfType(dictionary.get(), CFDictionaryGetTypeID())) return {};
  ProxySettings settings;
  settings.http = serverOf(dictionary.get(), "HTTP", "http");
  settings.https = serverOf(dictionary.get(), "HTTPS", "http");
  settings.socks = serverOf(dictionary.get(), "SOCKS", "socks5h");
  settings.excludesSimpleHostnames = numberUnder(dictionary.get(), "ExcludeSimpleHostnames") != 0;
  const auto* const exceptions = valueOf<CFArrayRef>(dictionary.get(), "ExceptionsList", CFArrayGetTypeID());
  for (CFIndex i = 0; exceptions != nullptr && i < CFArrayGetCount(exceptions); ++i) {
    const void* const entry = CFArrayGetValueAtIndex(exceptions, i);
    if (isOfType(entry, CFStringGetTypeID())) {
      settings.exceptions.push_back(textOf(static_cast<CFStringRef>(entry)));
    }
  }
  return settings;
}

}  // namespace msp
