#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>

/// The driver of the System Management Controller, "AppleSMC", and the record that it speaks.
namespace msp {

/// The one record of the driver, question and answer alike, laid out as the driver expects it.
struct SMCKeyData {
  std::uint32_t key = 0;  // four characters, the first in the most significant byte
  std::uint8_t versionMajor = 0;
  std::uint8_t versionMinor = 0;
  std::uint8_t versionBuild = 0;
  std::uint8_t versionReserved = 0;
  std::uint16_t versionRelease = 0;
  std::array<std::uint8_t, 2> padding1{};
  std::uint16_t powerLimitVersion = 0;
  std::uint16_t powerLimitLength = 0;
  std::uint32_t cpuPowerLimit = 0;
  std::uint32_t gpuPowerLimit = 0;
  std::uint32_t memoryPowerLimit = 0;
  std::uint32_t dataSize = 0;  // bytes of the key's value
  std::uint32_t dataType = 0;  // four characters, as the key
  std::uint8_t attributes = 0;
  std::array<std::uint8_t, 3> padding2{};
  std::uint8_t result = 0;
  std::uint8_t status = 0;
  std::uint8_t command = 0;
  std::array<std::uint8_t, 1> padding3{};
  std::uint32_t index = 0;
  std::array<std::uint8_t, 32> bytes{};
};
static_assert(sizeof(SMCKeyData) == 80);
static_assert(offsetof(SMCKeyData, key) == 0);
static_assert(offsetof(SMCKeyData, versionMajor) == 4);
static_assert(offsetof(SMCKeyData, versionMinor) == 5);
static_assert(offsetof(SMCKeyData, versionBuild) == 6);
static_assert(offsetof(SMCKeyData, versionReserved) == 7);
static_assert(offsetof(SMCKeyData, versionRelease) == 8);
static_assert(offsetof(SMCKeyData, powerLimitVersion) == 12);
static_assert(offsetof(SMCKeyData, powerLimitLength) == 14);
static_assert(offsetof(SMCKeyData, cpuPowerLimit) == 16);
static_assert(offsetof(SMCKeyData, gpuPowerLimit) == 20);
static_assert(offsetof(SMCKeyData, memoryPowerLimit) == 24);
static_assert(offsetof(SMCKeyData, dataSize) == 28);
static_assert(offsetof(SMCKeyData, dataType) == 32);
static_assert(offsetof(SMCKeyData, attributes) == 36);
static_assert(offsetof(SMCKeyData, result) == 40);
static_assert(offsetof(SMCKeyData, status) == 41);
static_assert(offsetof(SMCKeyData, command) == 42);
static_assert(offsetof(SMCKeyData, index) == 44);
static_assert(offsetof(SMCKeyData, bytes) == 48);

/// What the system offers to reach the driver. Safe on any thread.
class SMCConnection {
 public:
  /// A call that did not succeed, and the kernel's code; 0 when there is no such service.
  struct OpenError {
    std::string call;
    std::int32_t code = 0;
  };

  virtual ~SMCConnection() = default;

  /// A connection's number.
  virtual std::variant<std::uint32_t, OpenError> open() = 0;

  /// 0, or the kernel's code.
  virtual std::int32_t close(std::uint32_t connection) = 0;

  /// Asks the driver. 0, or the kernel's code; also for a number that is no connection.
  virtual std::int32_t call(std::uint32_t connection, const SMCKeyData& input, SMCKeyData& output) = 0;

  /// The system's text for a kernel code, as bytes; nothing when it has none.
  virtual std::optional<std::string> errorText(std::int32_t code) = 0;
};

/// The real one; where there is no controller, it answers like a Mac without the service.
std::unique_ptr<SMCConnection> systemSMCConnection();

}  // namespace msp
