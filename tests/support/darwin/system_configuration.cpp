#include <SystemConfiguration/SystemConfiguration.h>

#include "support/darwin/simulated_mac.h"

// SystemConfiguration, as far as the agent uses it.

using msp::test::MacObject;
using msp::test::MacValue;
using msp::test::SimulatedMac;

namespace {

SimulatedMac& mac() { return SimulatedMac::current(); }

/// A copy for the caller to release, of whatever type the test chose.
template <typename Reference>
Reference copyOf(const std::optional<MacValue>& value) {
  if (mac().fails() || !value) return nullptr;
  return reinterpret_cast<Reference>(mac().create(*value));
}

void expectNoStore(SCDynamicStoreRef store, const char* call) {
  if (store != nullptr) mac().fault(std::string(call) + " was given a store");
}

/// A part of the interface; the interface keeps it.
CFStringRef partOf(SCNetworkInterfaceRef interface, std::size_t part, const char* call) {
  const MacObject* const found = mac().object(interface, MacValue::Kind::interface, call);
  if (found == nullptr || mac().fails()) return nullptr;
  return reinterpret_cast<CFStringRef>(found->parts[part]);
}

}  // namespace

CFTypeID SCNetworkInterfaceGetTypeID() { return static_cast<CFTypeID>(MacValue::Kind::interface); }

CFArrayRef SCNetworkInterfaceCopyAll() { return copyOf<CFArrayRef>(mac().interfaces); }

CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface) {
  return partOf(interface, 0, __func__);
}
CFStringRef SCNetworkInterfaceGetHardwareAddressString(SCNetworkInterfaceRef interface) {
  return partOf(interface, 1, __func__);
}
CFStringRef SCNetworkInterfaceGetLocalizedDisplayName(SCNetworkInterfaceRef interface) {
  return partOf(interface, 2, __func__);
}

CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* nameEncoding) {
  expectNoStore(store, __func__);
  if (nameEncoding != nullptr) mac().fault("SCDynamicStoreCopyComputerName was asked for an encoding");
  return copyOf<CFStringRef>(mac().computerName);
}

CFDictionaryRef SCDynamicStoreCopyProxies(SCDynamicStoreRef store) {
  expectNoStore(store, __func__);
  return copyOf<CFDictionaryRef>(mac().proxies);
}
