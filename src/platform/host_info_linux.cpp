#include <unistd.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "platform/host_info.h"
#include "platform/text.h"

namespace msp {

std::optional<std::string> computerName() {
  // The last byte stays NUL: a name that was cut off need not have one.
  std::array<char, 257> name{};
  if (gethostname(name.data(), name.size() - 1) != 0 || name.front() == '\0') return std::nullopt;
  return repairText(name.data());
}

std::string macOSVersion() { return ""; }

double systemUptime() {
  constexpr double kNanosecond = 1e-9;
  std::timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  return static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) * kNanosecond;
}

std::string executableDirectory() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

}  // namespace msp
