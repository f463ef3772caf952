#include <IOKit/IOKitLib.h>
#include <mach/mach_error.h>

#include "platform/smc_connection.h"

namespace msp {
namespace {

class DriverConnection : public SMCConnection {
 public:
  std::variant<std::uint32_t, OpenError> open() override {
    io_iterator_t services = IO_OBJECT_NULL;
    // The null port is the main one under both of its names. The dictionary is released by the call.
    const kern_return_t found =
        IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("AppleSMC"), &services);
    if (found != KERN_SUCCESS) return OpenError{"IOServiceGetMatchingServices", found};
    const io_object_t service = IOIteratorNext(services);
    if (services != IO_OBJECT_NULL) IOObjectRelease(services);
    if (service == IO_OBJECT_NULL) return OpenError{"IOIteratorNext", KERN_SUCCESS};
    io_connect_t connection = IO_OBJECT_NULL;
    const kern_return_t opened = IOServiceOpen(service, mach_task_self(), 0, &connection);
    IOObjectRelease(service);
    if (opened != KERN_SUCCESS) return OpenError{"IOServiceOpen", opened};
    return connection;
  }

  std::int32_t close(std::uint32_t connection) override { return IOServiceClose(connection); }

  std::int32_t call(std::uint32_t connection, const SMCKeyData& input, SMCKeyData& output) override {
    constexpr std::uint32_t kHandleEvent = 2;  // the driver's single entry point
    std::size_t outputSize = sizeof output;
    return IOConnectCallStructMethod(connection, kHandleEvent, &input, sizeof input, &output, &outputSize);
  }

  std::optional<std::string> errorText(std::int32_t code) override {
    const char* const text = mach_error_string(code);
    if (text == nullptr) return std::nullopt;
    return text;
  }
};

}  // namespace

std::unique_ptr<SMCConnection> systemSMCConnection() { return std::make_unique<DriverConnection>(); }

}  // namespace msp
