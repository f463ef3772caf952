#include "platform/uuid.h"

#include <array>
#include <cstdint>
#include <random>

namespace msp {

std::string makeUuid() {
  std::random_device device;
  std::array<std::uint8_t, 16> bytes{};
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(device());
  // Version 4 (random), variant 1 of RFC 4122.
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[bytes[i] >> 4U];
    text += kDigits[bytes[i] & 0xFU];
  }
  return text;
}

}  // namespace msp
