#pragma once

#include <optional>
#include <string>

/// What the operating system says of this machine and this process. Safe on any thread.
namespace msp {

/// The user-visible computer name in any script; nothing when there is none.
std::optional<std::string> computerName();

/// The version of macOS, for instance "14.5"; "" when this is another system or it does not say.
std::string macOSVersion();

/// Seconds since boot, with fractions.
double systemUptime();

/// The directory of the running executable, symbolic links resolved; "" when the system does not say.
std::string executableDirectory();

}  // namespace msp
