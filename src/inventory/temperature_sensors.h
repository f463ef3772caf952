#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/host.h"
#include "platform/task_runner.h"

/// The temperatures of the Mac's processor and graphics: through powermetrics(1) on Intel, from the System
/// Management Controller on Apple silicon.
namespace msp {

/// Degrees Celsius; 0 is no reading.
struct Temperatures {
  double cpu = 0;
  double gpu = 0;
  bool operator==(const Temperatures&) const = default;
};

/// Nothing when the tool does not name the processor, and on Apple silicon before macOS 12.
std::optional<Temperatures> readTemperatures(const Host& host, TaskRunner& runner);

/// "Apple M2 Pro", from `sysctl -n machdep.cpu.brand_string`, sysctl(8).
std::optional<std::string> cpuBrand(TaskRunner& runner);

/// From `powermetrics -s smc`; of each the last line that has a number counts.
Temperatures parsePowermetrics(std::string_view text);

/// The mean of a chip's sensors that lie strictly between 10 and 110 degrees, to one decimal place; 0 when
/// none does and for a chip that is not in the table.
double averageTemperature(bool isGPU, std::string_view brand, const Host& host);

}  // namespace msp
