#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/core_foundation.h"
#include "platform/network_hardware.h"

namespace msp {
namespace {

std::optional<std::string> optionalText(CFStringRef text) {
  if (!isOfType(text, CFStringGetTypeID())) return std::nullopt;
  return textOf(text);
}

}  // namespace

std::vector<NetworkHardware> networkHardware() {
  const CFOwned<CFArrayRef> all(SCNetworkInterfaceCopyAll());
  if (!isOfType(all.get(), CFArrayGetTypeID())) return {};
  std::vector<NetworkHardware> found;
  const CFIndex count = CFArrayGetCount(all.get());
  for (CFIndex i = 0; i < count; ++i) {
    const CFTypeRef element = CFArrayGetValueAtIndex(all.get(), i);
    if (!isOfType(element, SCNetworkInterfaceGetTypeID())) continue;
    const auto* const interface = static_cast<SCNetworkInterfaceRef>(element);
    found.push_back({optionalText(SCNetworkInterfaceGetBSDName(interface)),
                     optionalText(SCNetworkInterfaceGetHardwareAddressString(interface)),
                     optionalText(SCNetworkInterfaceGetLocalizedDisplayName(interface))});
  }
  return found;
}

}  // namespace msp
