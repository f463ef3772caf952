/* As much of the framework as the agent uses; a Mac has the whole of it. */
#ifndef MSP_STUB_SYSTEM_CONFIGURATION_H
#define MSP_STUB_SYSTEM_CONFIGURATION_H

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCNetworkInterface* SCNetworkInterfaceRef;
typedef const struct __SCDynamicStore* SCDynamicStoreRef;

CFTypeID SCNetworkInterfaceGetTypeID(void);
CFArrayRef SCNetworkInterfaceCopyAll(void);
CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface);
CFStringRef SCNetworkInterfaceGetHardwareAddressString(SCNetworkInterfaceRef interface);
CFStringRef SCNetworkInterfaceGetLocalizedDisplayName(SCNetworkInterfaceRef interface);

CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* nameEncoding);
CFDictionaryRef SCDynamicStoreCopyProxies(SCDynamicStoreRef store);

#ifdef __cplusplus
}
#endif
#endif
