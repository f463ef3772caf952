#include "support/darwin/simulated_mac.h"

#include <IOKit/IOKitLib.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "platform/core_foundation.h"

// What the other tests rely on: that a Mac which is used wrongly tells so.

namespace msp::test {
namespace {

using Faults = std::vector<std::string>;

class UseOfAMac : public testing::Test {
 protected:
  UseOfAMac() {
    mac.computerName = text(u"Mac");
    mac.interfaces = array({interface(u"en0", std::nullopt, std::nullopt)});
  }

  SimulatedMac& mac = SimulatedMac::current();
};

TEST_F(UseOfAMac, isWithoutFaultWhenAllIsReleased) {
  {
    const CFOwned<CFArrayRef> all(SCNetworkInterfaceCopyAll());
    const auto first = static_cast<SCNetworkInterfaceRef>(CFArrayGetValueAtIndex(all.get(), 0));
    EXPECT_EQ(CFStringGetLength(SCNetworkInterfaceGetBSDName(first)), 3);
  }
  EXPECT_EQ(mac.takeFaults(), Faults());
}

TEST_F(UseOfAMac, tellsAnObjectThatIsNeverReleased) {
  SCDynamicStoreCopyComputerName(nullptr, nullptr);
  EXPECT_EQ(mac.takeFaults(), Faults{"a text was never released"});
}

TEST_F(UseOfAMac, tellsAnObjectThatIsReleasedTwice) {
  const CFStringRef name = SCDynamicStoreCopyComputerName(nullptr, nullptr);
  CFRelease(name);
  CFRelease(name);
  EXPECT_EQ(mac.takeFaults(), Faults{"CFRelease was given a text that is gone"});
}

TEST_F(UseOfAMac, tellsTheReleaseOfWhatAnotherObjectKeeps) {
  const CFArrayRef all = SCNetworkInterfaceCopyAll();
  CFRelease(CFArrayGetValueAtIndex(all, 0));
  CFRelease(all);
  EXPECT_EQ(mac.takeFaults(), Faults{"CFRelease was given an interface that the caller does not own"});
}

TEST_F(UseOfAMac, tellsTheUseOfWhatIsReleased) {
  const CFStringRef name = SCDynamicStoreCopyComputerName(nullptr, nullptr);
  CFRelease(name);
  EXPECT_EQ(CFStringGetLength(name), 0);
  EXPECT_EQ(mac.takeFaults(), Faults{"CFStringGetLength was given a text that is gone"});
}

TEST_F(UseOfAMac, tellsTheUseOfWhatWentWithItsOwner) {
  const CFArrayRef all = SCNetworkInterfaceCopyAll();
  const auto first = static_cast<SCNetworkInterfaceRef>(CFArrayGetValueAtIndex(all, 0));
  const CFStringRef name = SCNetworkInterfaceGetBSDName(first);
  CFRelease(all);
  EXPECT_EQ(CFGetTypeID(name), 0U);
  EXPECT_EQ(mac.takeFaults(), Faults{"CFGetTypeID was given a text that is gone"});
}

TEST_F(UseOfAMac, tellsACastToAnotherType) {
  const CFArrayRef all = SCNetworkInterfaceCopyAll();
  const void* const first = CFArrayGetValueAtIndex(all, 0);
  EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(first)), 0);
  EXPECT_EQ(CFNumberGetValue(static_cast<CFNumberRef>(first), kCFNumberSInt64Type, nullptr), 0);
  CFRelease(all);
  EXPECT_EQ(mac.takeFaults(),
            (Faults{"CFStringGetLength was given an interface", "CFNumberGetValue was given an interface"}));
}

TEST_F(UseOfAMac, tellsANullPointerAndWhatIsNoObject) {
  const int number = 0;
  CFRelease(nullptr);
  CFRelease(&number);
  EXPECT_EQ(mac.takeFaults(),
            (Faults{"CFRelease was given a null pointer", "CFRelease was given what is no object"}));
}

TEST_F(UseOfAMac, tellsAnIndexBeyondTheArray) {
  const CFArrayRef all = SCNetworkInterfaceCopyAll();
  EXPECT_EQ(CFArrayGetValueAtIndex(all, 1), nullptr);
  CFRelease(all);
  EXPECT_EQ(mac.takeFaults(), Faults{"CFArrayGetValueAtIndex was given an index beyond the array"});
}

TEST_F(UseOfAMac, tellsTheReleaseOfADictionaryThatMatchingHasReleased) {
  const CFMutableDictionaryRef matching = IOServiceMatching("AppleSMC");
  io_iterator_t services = IO_OBJECT_NULL;
  EXPECT_EQ(IOServiceGetMatchingServices(MACH_PORT_NULL, matching, &services), KERN_SUCCESS);
  CFRelease(matching);
  IOObjectRelease(services);
  EXPECT_EQ(mac.takeFaults(), Faults{"CFRelease was given a dictionary that is gone"});
}

TEST_F(UseOfAMac, tellsAnIteratorAServiceAndAConnectionThatAreNeverReleased) {
  io_iterator_t services = IO_OBJECT_NULL;
  io_connect_t connection = IO_OBJECT_NULL;
  IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("AppleSMC"), &services);
  IOServiceOpen(IOIteratorNext(services), mach_task_self(), 0, &connection);
  EXPECT_EQ(mac.takeFaults(), (Faults{"an iterator was never released", "a service was never released",
                                      "a connection was never released"}));
}

TEST_F(UseOfAMac, tellsAPortThatIsUsedForAnotherOrReleasedTwice) {
  io_iterator_t services = IO_OBJECT_NULL;
  io_connect_t connection = IO_OBJECT_NULL;
  IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("AppleSMC"), &services);
  EXPECT_NE(IOServiceOpen(services, mach_task_self(), 0, &connection), KERN_SUCCESS);
  IOObjectRelease(services);
  IOObjectRelease(services);
  EXPECT_EQ(mac.takeFaults(), (Faults{"IOServiceOpen was given what is not a service",
                                      "a port that is not open was released"}));
}

TEST_F(UseOfAMac, hasTheCallFailThatATestNames) {
  mac.failCall(2);
  const CFOwned<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
  EXPECT_NE(name, nullptr);
  EXPECT_EQ(SCNetworkInterfaceCopyAll(), nullptr);
  EXPECT_EQ(mac.fallibleCalls(), 2);
}

TEST_F(UseOfAMac, measuresATextInCodeUnitsAndCutsItBetweenCharacters) {
  mac.computerName = text(u"\u00E9\U0001F511z");
  const CFOwned<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
  EXPECT_EQ(CFStringGetLength(name.get()), 4);
  std::array<UInt8, 8> bytes{};
  CFIndex used = 0;
  EXPECT_EQ(CFStringGetBytes(name.get(), {0, 4}, kCFStringEncodingUTF8, 0, 0, nullptr, 0, &used), 4);
  EXPECT_EQ(used, 7);
  EXPECT_EQ(CFStringGetBytes(name.get(), {0, 4}, kCFStringEncodingUTF8, 0, 0, bytes.data(), 5, &used), 1);
  EXPECT_EQ(used, 2);
  EXPECT_EQ(bytes[2], 0);
}

TEST_F(UseOfAMac, stopsATextAtHalfAPairUnlessThereIsAByteForIt) {
  mac.computerName = text(u"a\xD800z");
  const CFOwned<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
  CFIndex used = 0;
  EXPECT_EQ(CFStringGetBytes(name.get(), {0, 3}, kCFStringEncodingUTF8, 0, 0, nullptr, 0, &used), 1);
  EXPECT_EQ(used, 1);
  EXPECT_EQ(CFStringGetBytes(name.get(), {0, 3}, kCFStringEncodingUTF8, '?', 0, nullptr, 0, &used), 3);
  EXPECT_EQ(used, 3);
}

}  // namespace
}  // namespace msp::test
