#include <IOKit/IOKitLib.h>
#include <mach/mach_error.h>

#include "platform/smc_connection.h"

namespace msp {
namespace {

/// A reference to an object of the kernel, or none; released at the end.
class OwnedObject {
 public:
  OwnedObject() = default;
  explicit OwnedObject(io_object_t object) : object_(object) {}
  OwnedObject(const OwnedObject&) = delete;
  OwnedObject& operator=(const OwnedObject&) = delete;
  ~OwnedObject() {
    if (object_ != IO_OBJECT_NULL) IOObjectRelease(object_);
  }

  [[nodiscard]] io_object_t get() const { return object_; }
  /// For a call that gives a reference; there must be none yet.
  [[nodiscard]] io_object_t* receive() { return &object_; }

 private:
  io_object_t object_ = IO_OBJECT_NULL;
};

class DriverConnection : public SMCConnection {
 public:
  std::variant<std::uint32_t, OpenError> open() override {
    OwnedObject services;
    // The null port is the main one under both of its names. The dictionary is released by the call.
    const kern_return_t found =
        IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("AppleSMC"), services.receive());
    if (found != KERN_SUCCESS) return OpenError{"IOServiceGetMatchingServices", found};
    const OwnedObject service(IOIteratorNext(services.get()));
    if (service.get() == IO_OBJECT_NULL) return OpenError{"IOIteratorNext", KERN_SUCCESS};
    io_connect_t connection = IO_OBJECT_NULL;
    const kern_return_t opened = IOServiceOpen(service.get(), mach_task_self(), 0, &connection);
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
