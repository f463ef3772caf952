#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/smc_connection.h"

namespace msp {

/// The bytes of one value, zeros behind its end.
using SMCBytes = std::array<std::uint8_t, 32>;

/// A value as a number, by its type; nothing for a type that is not in the table. Pure.
std::optional<double> decodeSMCValue(std::string_view type, const SMCBytes& bytes);

/// Reads values of the System Management Controller (temperatures, fans, power) by their four-character
/// keys.
///
/// Opened when it is made, never again; when that fails, every reading fails. Failures are lines on standard
/// output. Safe on any thread.
class SMC {
 public:
  explicit SMC(std::unique_ptr<SMCConnection> connection);
  ~SMC();
  SMC(const SMC&) = delete;
  SMC& operator=(const SMC&) = delete;

  /// The value of a key; nothing when it cannot be read, is empty, all zero (but for "FS! " and "F0Md") or
  /// of a type that is not known. A key that has not exactly four bytes ends the process.
  [[nodiscard]] std::optional<double> readKeyValue(std::string_view key) const;

  /// The names of all keys; empty when their number cannot be read. A number that no integer holds ends the
  /// process.
  [[nodiscard]] std::vector<std::string> allKeys() const;

 private:
  struct Value {
    std::uint32_t dataSize = 0;
    std::string dataType;
    SMCBytes bytes{};
  };
  /// The value, or the kernel's code.
  [[nodiscard]] std::variant<Value, std::int32_t> readValue(std::string_view key) const;
  [[nodiscard]] std::string errorText(std::int32_t code) const;

  std::unique_ptr<SMCConnection> connection_;
  std::uint32_t conn_ = 0;  // 0 while not open
};

/// The one of this process, made at the first call and kept.
const SMC& sharedSMC();

}  // namespace msp
