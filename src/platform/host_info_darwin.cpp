#include <SystemConfiguration/SystemConfiguration.h>
#include <mach-o/dyld.h>
#include <sys/sysctl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "platform/core_foundation.h"
#include "platform/host_info.h"

namespace msp {

std::optional<std::string> computerName() {
  const CFOwned<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
  if (!isOfType(name.get(), CFStringGetTypeID()) || CFStringGetLength(name.get()) == 0) return std::nullopt;
  return textOf(name.get());
}

std::string macOSVersion() {
  std::array<char, 32> version{};
  std::size_t size = version.size() - 1;  // the last byte stays NUL
  if (sysctlbyname("kern.osproductversion", version.data(), &size, nullptr, 0) != 0) return "";
  return version.data();
}

double systemUptime() {
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(clock_gettime_nsec_np(CLOCK_UPTIME_RAW)) * kNanosecond;
}

std::string executableDirectory() {
  std::uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::string path(size, '\0');
  if (_NSGetExecutablePath(path.data(), &size) != 0) return "";
  std::error_code error;
  return std::filesystem::canonical(path.c_str(), error).parent_path().string();
}

}  // namespace msp
