#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "inventory/gathered_data.h"
#include "platform/host.h"
#include "platform/task_runner.h"

/// Facts about the Mac for the check-in report: for each tool a pure parser, and a collector that runs the
/// tool and keeps the report's value when the output does not parse. A runner is not for two threads at once.
namespace msp {

struct HardwareIdentity {
  std::optional<std::string> serialNumber;
  std::optional<std::string> model;
  bool operator==(const HardwareIdentity&) const = default;
};
/// From `system_profiler SPHardwareDataType`, system_profiler(8).
HardwareIdentity parseHardwareIdentity(std::string_view output);

struct SystemVersion {
  /// The value of every line, joined by one blank: "macOS 14.4.1 23E224"; "" when there was no output.
  std::string everything;
  std::optional<std::string> productName;
  std::optional<std::string> productVersion;
  bool operator==(const SystemVersion&) const = default;
};
/// From `sw_vers`, sw_vers(1).
SystemVersion parseSystemVersion(std::string_view output);

/// The logged-in user from `who`, who(1): the first on a tty, else the first on the console.
std::optional<std::string> parseLoggedInUser(std::string_view output);

/// "1.52, 1.61, 1.70" from `uptime`, uptime(1).
std::optional<std::string> parseLoadAverage(std::string_view output);

/// Free plus inactive memory in bytes from `vm_stat`, vm_stat(1); nothing when there was no output. A sum or
/// product beyond 64 bits ends the process.
std::optional<std::int64_t> parseFreeMemory(std::string_view output);

struct DriveSpace {
  std::int64_t size = 0;       // bytes
  std::int64_t available = 0;  // bytes
  bool operator==(const DriveSpace&) const = default;
};
/// Size and free space from the last line of `df -k /`, df(1); nothing when one does not parse or does not
/// fit into 64 bits.
std::optional<DriveSpace> parseDriveSpace(std::string_view output);

/// The newest date of an entry whose name begins with "macOS", as the report writes dates; from the
/// property list /Library/Receipts/InstallHistory.plist. Nothing when there is no such entry.
std::optional<std::string> parseLastSystemUpdate(std::string_view propertyList);

// The collectors. Each stores into its own fields of the report.
void collectLastSystemUpdate(GatheredData& report, const Host& host);
void collectProcessor(GatheredData& report, TaskRunner& runner);
void collectSystemVersion(GatheredData& report, TaskRunner& runner);
void collectHardwareIdentity(GatheredData& report, TaskRunner& runner);
void collectMemorySize(GatheredData& report, TaskRunner& runner);
void collectComputerName(GatheredData& report, const Host& host);
void collectUserName(GatheredData& report, TaskRunner& runner);
void collectUptime(GatheredData& report, const Host& host);
void collectLoadAverage(GatheredData& report, TaskRunner& runner);
void collectFreeMemory(GatheredData& report, TaskRunner& runner);
void collectDriveSpace(GatheredData& report, TaskRunner& runner);

}  // namespace msp
