#include <SystemConfiguration/SystemConfiguration.h>

#include <cstdint>
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
  return value != nullptr && CFGetTypeID(value) == type ? static_cast<Ref>(value) : nullptr;
}

int numberOf(CFNumberRef number) {
  std::int64_t value = 0;
  if (number == nullptr || !CFNumberGetValue(number, kCFNumberSInt64Type, &value)) return 0;
  return static_cast<int>(value);
}

int numberUnder(CFDictionaryRef dictionary, const std::string& key) {
  return numberOf(valueOf<CFNumberRef>(dictionary, key.c_str(), CFNumberGetTypeID()));
}

/// The server whose keys begin with a word, for instance "HTTP": HTTPEnable, HTTPProxy, HTTPPort.
std::optional<ProxyServer> serverOf(CFDictionaryRef dictionary, const std::string& word, std::string scheme) {
  if (numberUnder(dictionary, word + "Enable") == 0) return std::nullopt;
  const auto host = valueOf<CFStringRef>(dictionary, (word + "Proxy").c_str(), CFStringGetTypeID());
  if (host == nullptr || CFStringGetLength(host) == 0) return std::nullopt;
  return ProxyServer{std::move(scheme), textOf(host), numberUnder(dictionary, word + "Port")};
}

}  // namespace

ProxySettings systemProxySettings() {
  const CFOwned<CFDictionaryRef> dictionary(SCDynamicStoreCopyProxies(nullptr));
  if (!dictionary) return {};
  ProxySettings settings;
  settings.http = serverOf(dictionary.get(), "HTTP", "http");
  settings.https = serverOf(dictionary.get(), "HTTPS", "http");
  settings.socks = serverOf(dictionary.get(), "SOCKS", "socks5h");
  settings.excludesSimpleHostnames = numberUnder(dictionary.get(), "ExcludeSimpleHostnames") != 0;
  const auto exceptions = valueOf<CFArrayRef>(dictionary.get(), "ExceptionsList", CFArrayGetTypeID());
  for (CFIndex i = 0; exceptions != nullptr && i < CFArrayGetCount(exceptions); ++i) {
    const void* const entry = CFArrayGetValueAtIndex(exceptions, i);
    if (entry != nullptr && CFGetTypeID(entry) == CFStringGetTypeID()) {
      settings.exceptions.push_back(textOf(static_cast<CFStringRef>(entry)));
    }
  }
  return settings;
}

}  // namespace msp
