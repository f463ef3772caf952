#include "platform/smc_connection.h"

namespace msp {
namespace {

constexpr std::int32_t kInvalidDestination = 0x10000003;  // MACH_SEND_INVALID_DEST

/// There is no controller: what a Mac without the service answers.
class NoConnection : public SMCConnection {
 public:
  std::variant<std::uint32_t, OpenError> open() override { return OpenError{"IOIteratorNext", 0}; }
  std::int32_t close(std::uint32_t /*connection*/) override { return kInvalidDestination; }
  std::int32_t call(std::uint32_t /*connection*/, const SMCKeyData& /*input*/,
                    SMCKeyData& /*output*/) override {
    return kInvalidDestination;
  }
  std::optional<std::string> errorText(std::int32_t code) override {
    if (code == 0) return "(os/kern) successful";
    if (code == kInvalidDestination) return "(ipc/send) invalid destination port";
    return std::nullopt;
  }
};

}  // namespace

std::unique_ptr<SMCConnection> systemSMCConnection() { return std::make_unique<NoConnection>(); }

}  // namespace msp
