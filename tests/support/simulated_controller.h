#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/smc_connection.h"

namespace msp::test {

/// A System Management Controller made of a table. Set it up before other threads use it.
struct SimulatedController {
  struct Key {
    std::string name;
    std::string type;
    std::vector<std::uint8_t> bytes;
    std::optional<std::uint32_t> size = std::nullopt;  // what it claims, when that is not the bytes' number
  };

  std::vector<Key> keys;
  std::optional<SMCConnection::OpenError> openError;
  std::map<std::string, std::int32_t> infoErrors;  // by key: asking for its size and type fails
  std::map<std::string, std::int32_t> readErrors;  // by key: asking for its value fails
  std::set<std::uint32_t> unreadableIndices;       // asking for the key there fails
  std::map<std::int32_t, std::string> errorTexts;
  std::int32_t closeCode = 0;

  std::vector<SMCKeyData> questions;  // as they came
  int opened = 0;
  int closed = 0;
  std::mutex mutex;  // guards the three above

  /// A sensor as Apple silicon has them: a number in the machine's own byte order.
  void addTemperature(const std::string& name, float degrees) {
    std::vector<std::uint8_t> bytes(sizeof degrees);
    std::memcpy(bytes.data(), &degrees, sizeof degrees);
    keys.push_back({name, "flt ", std::move(bytes)});
  }
};

inline std::uint32_t controllerCode(std::string_view characters) {
  std::uint32_t code = 0;
  for (const char character : characters) code = code * 256 + static_cast<std::uint8_t>(character);
  return code;
}

class SimulatedConnection : public SMCConnection {
 public:
  static constexpr std::uint32_t kNumber = 0x1403;
  static constexpr std::int32_t kNotConnected = 0x10000003;
  static constexpr std::int32_t kNoSuchIndex = -536870206;
  static constexpr std::uint8_t kKeyNotFound = 0x84;

  explicit SimulatedConnection(SimulatedController& controller) : controller_(controller) {}

  std::variant<std::uint32_t, OpenError> open() override {
    const std::scoped_lock lock(controller_.mutex);
    ++controller_.opened;
    if (controller_.openError) return *controller_.openError;
    return kNumber;
  }
  std::int32_t close(std::uint32_t connection) override {
    const std::scoped_lock lock(controller_.mutex);
    if (connection != kNumber) return kNotConnected;
    ++controller_.closed;
    return controller_.closeCode;
  }
  std::int32_t call(std::uint32_t connection, const SMCKeyData& input, SMCKeyData& output) override {
    {
      const std::scoped_lock lock(controller_.mutex);
      controller_.questions.push_back(input);
    }
    if (connection != kNumber) return kNotConnected;
    output = SMCKeyData{};
    if (input.command == 8) {
      if (input.index >= controller_.keys.size() || controller_.unreadableIndices.contains(input.index))
        return kNoSuchIndex;
      output.key = controllerCode(controller_.keys[input.index].name);
      return 0;
    }
    const auto key =
        std::find_if(controller_.keys.begin(), controller_.keys.end(),
                     [&](const auto& candidate) { return controllerCode(candidate.name) == input.key; });
    if (key == controller_.keys.end()) {
      output.result = kKeyNotFound;  // the call itself succeeds
      return 0;
    }
    const auto& errors = input.command == 9 ? controller_.infoErrors : controller_.readErrors;
    if (const auto error = errors.find(key->name); error != errors.end()) return error->second;
    const std::uint32_t size = key->size.value_or(static_cast<std::uint32_t>(key->bytes.size()));
    if (input.command == 9) {
      output.dataSize = size;
      output.dataType = controllerCode(key->type);
    } else if (input.command == 5 && input.dataSize == size) {
      std::copy(key->bytes.begin(), key->bytes.end(), output.bytes.begin());
    }
    return 0;
  }
  std::optional<std::string> errorText(std::int32_t code) override {
    const auto found = controller_.errorTexts.find(code);
    return found == controller_.errorTexts.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  SimulatedController& controller_;
};

}  // namespace msp::test
