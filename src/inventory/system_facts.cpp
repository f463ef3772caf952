#include "inventory/system_facts.h"

#include <cmath>
#include <utility>
#include <variant>
#include <vector>

#include "platform/console.h"
#include "platform/property_list.h"
#include "platform/text.h"
#include "platform/time_format.h"

namespace msp {
namespace {

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// What follows the last blank of the first line that contains the key.
std::optional<std::string> lastPieceOfLineWith(std::string_view key, std::string_view output) {
  for (const std::string_view line : lines(output)) {
    if (contains(line, key)) return std::string(trimBlanks(split(line, ' ').back()));
  }
  return std::nullopt;
}

/// The first piece of the first line whose second piece begins with the text.
std::optional<std::string> userOnTerminal(std::string_view terminal, std::string_view output) {
  for (const std::string_view line : lines(output)) {
    const auto pieces = words(line);
    if (pieces.size() >= 2 && pieces[1].starts_with(terminal)) return std::string(pieces[0]);
  }
  return std::nullopt;
}

std::int64_t pageSize(std::string_view output) {
  constexpr std::int64_t kUsualPageSize = 4096;
  for (const std::string_view piece : words(lines(output).front())) {
    if (const auto size = parseInteger(piece)) return *size;
  }
  return kUsualPageSize;
}

/// Blocks of `df -k` in bytes; nothing when that does not fit into 64 bits.
std::optional<std::int64_t> bytesOfBlocks(std::string_view blocks) {
  constexpr std::int64_t kBlockSize = 1024;
  const auto count = parseInteger(blocks);
  std::int64_t bytes = 0;
  if (!count || __builtin_mul_overflow(*count, kBlockSize, &bytes)) return std::nullopt;
  return bytes;
}

/// The date of an install history's entry when it is one of the operating system; nothing also when the
/// date is beyond what the clock can express.
std::optional<std::chrono::system_clock::time_point> systemUpdateDate(const PropertyListDictionary& entry) {
  const auto name = entry.find("displayName");
  const auto date = entry.find("date");
  if (name == entry.end() || date == entry.end()) return std::nullopt;
  const auto* const displayName = std::get_if<std::string>(&name->second);
  const auto* const installed = std::get_if<PropertyListDate>(&date->second);
  if (displayName == nullptr || !displayName->starts_with("macOS") || installed == nullptr) {
    return std::nullopt;
  }
  using std::chrono::system_clock;
  const auto limit =
      static_cast<double>(std::chrono::floor<std::chrono::seconds>(system_clock::duration::max()).count());
  if (!(std::abs(installed->secondsSince1970) < limit)) return std::nullopt;
  return system_clock::time_point(
      std::chrono::seconds(static_cast<std::int64_t>(std::floor(installed->secondsSince1970))));
}

/// Stores what was found; otherwise the field keeps its value.
template <typename Value>
void store(Value& field, std::optional<Value> found) {
  if (found) field = *std::move(found);
}

}  // namespace

HardwareIdentity parseHardwareIdentity(std::string_view output) {
  return {lastPieceOfLineWith("Serial Number", output), lastPieceOfLineWith("Model Identifier", output)};
}

SystemVersion parseSystemVersion(std::string_view output) {
  SystemVersion version;
  const char* separator = "";
  for (const std::string_view line : lines(output)) {
    const auto pieces = split(line, '\t');
    const std::string value(trimBlanks(pieces.back()));
    version.everything += std::exchange(separator, " ") + value;
    if (pieces.size() < 2) continue;
    if (contains(pieces.front(), "ProductName")) {
      version.productName = value;
    } else if (contains(pieces.front(), "ProductVersion")) {
      // "ProductVersionExtra", the line of a security response, counts too and comes later.
      version.productVersion = value;
    }
  }
  return version;
}

std::optional<std::string> parseLoggedInUser(std::string_view output) {
  // A terminal comes before the console, on purpose, whatever the order of the lines.
  if (auto user = userOnTerminal("tty", output)) return user;
  return userOnTerminal("console", output);
}

std::optional<std::string> parseLoadAverage(std::string_view output) {
  const auto pieces = split(output, ' ');
  if (pieces.size() <= 3) return std::nullopt;
  const auto last = pieces.rbegin();
  return std::string(last[2]).append(", ").append(last[1]).append(", ").append(last[0]);
}

std::optional<std::int64_t> parseFreeMemory(std::string_view output) {
  if (output.empty()) return std::nullopt;
  std::int64_t pages = 0;
  for (const std::string_view line : lines(output)) {
    if (!line.starts_with("Pages free") && !line.starts_with("Pages inactive")) continue;
    const auto count = parseInteger(words(trimPunctuation(line)).back()).value_or(0);
    if (__builtin_add_overflow(pages, count, &pages)) fatalError("Free memory exceeds 64 bits");
  }
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(pages, pageSize(output), &bytes)) fatalError("Free memory exceeds 64 bits");
  return bytes;
}

std::optional<DriveSpace> parseDriveSpace(std::string_view output) {
  const auto pieces = words(lines(output).back());
  if (pieces.size() <= 3) return std::nullopt;
  const auto size = bytesOfBlocks(pieces[1]);
  const auto available = bytesOfBlocks(pieces[3]);
  if (!size || !available) return std::nullopt;
  return DriveSpace{*size, *available};
}

std::optional<std::string> parseLastSystemUpdate(std::string_view propertyList) {
  const auto entries = parsePropertyListDictionaries(propertyList);
  if (!entries) return std::nullopt;
  std::optional<std::chrono::system_clock::time_point> newest;
  for (const PropertyListDictionary& entry : *entries) {
    const auto date = systemUpdateDate(entry);
    if (date && (!newest || *date > *newest)) newest = date;
  }
  return newest ? std::optional(formatTime(*newest)) : std::nullopt;
}

void collectLastSystemUpdate(GatheredData& report, const Host& host) {
  const auto history = host.fileContent("/Library/Receipts/InstallHistory.plist");
  if (history) store(report.last_sw_update, parseLastSystemUpdate(*history));
}

void collectProcessor(GatheredData& report, TaskRunner& runner) {
  std::string brand = runner.runCommand("sysctl", {"-n", "machdep.cpu.brand_string"});
  if (!brand.empty()) report.cpu = std::move(brand);
}

void collectSystemVersion(GatheredData& report, TaskRunner& runner) {
  const SystemVersion version = parseSystemVersion(runner.runCommand("sw_vers", {}));
  if (version.everything.empty()) return;
  report.os_name = version.productName.value_or(report.os_name);
  // Without a version line the build becomes what os_version held *before* this run (nothing, as a rule):
  // the three belong to one run and are stored together.
  report.os_build = version.productVersion.value_or(report.os_version);
  report.os_version = version.everything;
}

void collectHardwareIdentity(GatheredData& report, TaskRunner& runner) {
  HardwareIdentity identity =
      parseHardwareIdentity(runner.runCommand("system_profiler", {"SPHardwareDataType"}));
  store(report.hw_serial_number, std::move(identity.serialNumber));
  store(report.hw_model, std::move(identity.model));
}

void collectMemorySize(GatheredData& report, TaskRunner& runner) {
  store(report.ram, parseInteger(runner.runCommand("sysctl", {"-n", "hw.memsize"})));
}

void collectComputerName(GatheredData& report, const Host& host) {
  report.name = hostLabel(host.computerName().value_or(report.name));
}

void collectUserName(GatheredData& report, TaskRunner& runner) {
  store(report.username, parseLoggedInUser(runner.runCommand("who", {})));
}

void collectUptime(GatheredData& report, const Host& host) { report.uptime = host.uptime(); }

void collectLoadAverage(GatheredData& report, TaskRunner& runner) {
  store(report.load_average, parseLoadAverage(runner.runCommand("uptime", {})));
}

void collectFreeMemory(GatheredData& report, TaskRunner& runner) {
  store(report.free_ram, parseFreeMemory(runner.runCommand("vm_stat", {})));
}

void collectDriveSpace(GatheredData& report, TaskRunner& runner) {
  const auto space = parseDriveSpace(runner.runCommand("df", {"-k", "/"}));
  if (!space) return;
  report.primary_drive_size = space->size;
  report.primary_drive_free_space = space->available;
}

}  // namespace msp
