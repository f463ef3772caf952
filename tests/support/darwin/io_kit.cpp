#include "support/darwin/io_kit.h"

#include <IOKit/IOKitLib.h>
#include <mach/mach_error.h>

#include <cstring>
#include <string_view>

#include "support/darwin/simulated_mac.h"

// IOKit with one driver, and Mach's texts for its codes, as far as the agent uses them.

using msp::test::MacObject;
using msp::test::MacValue;
using msp::test::SimulatedConnection;
using msp::test::SimulatedMac;
using PortKind = SimulatedMac::PortKind;

namespace {

constexpr mach_port_t kThisTask = 0x103;

SimulatedMac& mac() { return SimulatedMac::current(); }

}  // namespace

mach_port_t mach_task_self() { return kThisTask; }

char* mach_error_string(mach_error_t error) {
  if (mac().fails()) return nullptr;
  const auto found = mac().controller.errorTexts.find(error);
  return found == mac().controller.errorTexts.end() ? nullptr : found->second.data();
}

CFMutableDictionaryRef IOServiceMatching(const char* className) {
  if (mac().fails()) return nullptr;
  if (std::string_view(className) != "AppleSMC") mac().fault("IOServiceMatching was given another driver");
  return reinterpret_cast<CFMutableDictionaryRef>(
      mac().create(msp::test::dictionary({{msp::test::text(u"IOProviderClass"), msp::test::text(u"")}})));
}

kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching,
                                           io_iterator_t* existing) {
  if (mainPort != MACH_PORT_NULL) mac().fault("IOServiceGetMatchingServices was given a port");
  if (matching == nullptr) return msp::test::kBadArgument;
  if (mac().object(matching, MacValue::Kind::dictionary, __func__) == nullptr) return msp::test::kBadArgument;
  mac().release(matching, __func__);  // whatever comes of it
  if (mac().fails()) return msp::test::kNoSpace;
  if (mac().hasServiceIterator) *existing = mac().openPort(PortKind::iterator);
  return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
  if (mac().fails()) return IO_OBJECT_NULL;
  if (iterator == IO_OBJECT_NULL || !mac().isPort(iterator, PortKind::iterator, __func__))
    return IO_OBJECT_NULL;
  return mac().hasController ? mac().openPort(PortKind::service) : IO_OBJECT_NULL;
}

kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, uint32_t type,
                            io_connect_t* connect) {
  if (!mac().isPort(service, PortKind::service, __func__)) return msp::test::kBadArgument;
  if (owningTask != kThisTask) mac().fault("IOServiceOpen was given another task");
  if (type != 0) mac().fault("IOServiceOpen was given another type");
  if (mac().fails()) return msp::test::kNotPermitted;
  if (mac().controller.openError) return mac().controller.openError->code;
  *connect = mac().openPort(PortKind::connection);
  return KERN_SUCCESS;
}

kern_return_t IOServiceClose(io_connect_t connect) {
  if (!mac().isPort(connect, PortKind::connection, __func__)) return msp::test::kInvalidDestination;
  mac().closePort(connect);
  return mac().closeCode;
}

kern_return_t IOObjectRelease(io_object_t object) {
  mac().closePort(object);
  return KERN_SUCCESS;
}

kern_return_t IOConnectCallStructMethod(mach_port_t connection, uint32_t selector, const void* input,
                                        size_t inputSize, void* output, size_t* outputSize) {
  if (connection == MACH_PORT_NULL) return msp::test::kInvalidDestination;
  if (!mac().isPort(connection, PortKind::connection, __func__)) return msp::test::kInvalidDestination;
  constexpr uint32_t kHandleEvent = 2;
  if (selector != kHandleEvent || inputSize != sizeof(msp::SMCKeyData) ||
      *outputSize != sizeof(msp::SMCKeyData)) {
    mac().fault("IOConnectCallStructMethod was called as the driver refuses it");
    return msp::test::kBadArgument;
  }
  if (mac().fails()) return msp::test::kNoSpace;
  msp::SMCKeyData question;
  std::memcpy(&question, input, sizeof question);
  msp::SMCKeyData answer;
  const kern_return_t code =
      SimulatedConnection(mac().controller).call(SimulatedConnection::kNumber, question, answer);
  if (code == KERN_SUCCESS) std::memcpy(output, &answer, sizeof answer);
  return code;
}
