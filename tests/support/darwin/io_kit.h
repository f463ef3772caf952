#pragma once

#include <cstdint>

namespace msp::test {

/// The kernel's codes for what the simulated drivers refuse.
constexpr auto kBadArgument = static_cast<std::int32_t>(0xE00002C2);
constexpr auto kNotPermitted = static_cast<std::int32_t>(0xE00002E2);
constexpr std::int32_t kInvalidDestination = 0x10000003;
constexpr std::int32_t kNoSpace = 3;

}  // namespace msp::test
