#include "inventory/temperature_sensors.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "platform/event_log.h"
#include "platform/text.h"

namespace msp {
namespace {

constexpr double kCoolest = 10;   // degrees Celsius; a sensor at or below is none
constexpr double kHottest = 110;  // the same, at or above
constexpr std::int64_t kFirstMacOSWithKeys = 12;

constexpr std::string_view kCPUTemperature = "CPU die temperature: ";
constexpr std::string_view kGPUTemperature = "GPU die temperature: ";

struct Chip {
  std::string_view name;
  // Keys of four characters, a blank between two.
  std::string_view cpuKeys;
  std::string_view gpuKeys;
};

// The first whose name the brand contains.
constexpr Chip kChips[] = {
    {"M1", "Tp01 Tp05 Tp0D Tp0H Tp0L Tp0P Tp0X Tp0b Tp09 Tp0T Tc0a Tc0b Tc0x Tc0z",
     "Tg05 Tg0D Tg0L Tg0T Tg1b Tg4b"},
    {"M2", "Tp1h Tp1t Tp1p Tp1l Tp01 Tp09 Tp0f Tp0n Tp05 Tp0D Tp0j Tp0r", "Tg0f Tg0j"},
    {"M3", "Tp01 Tp09 Tp0f Tp0n Tp05 Tp0D Tp0j Tp0r", "Tg0D Tg0P Tg0X Tg0b Tg0j Tg0v"},
    {"M4", "Tp01 Tp09 Te0f Tp05 Tp0D", "Tg0D Tg0P Tg0X Tg0j"},
};

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// The number behind the first ": " of a line.
std::optional<double> temperature(std::string_view line) {
  std::string_view value = line.substr(line.find(": ") + 2);
  value = value.substr(0, value.find(": "));
  const auto pieces = tokens(value);
  return pieces.empty() ? std::nullopt : parseDouble(pieces.front());
}

bool knowsKeys(const Host& host) {
  const std::string version = host.macOSVersion();
  return parseInteger(split(version, '.').front()).value_or(0) >= kFirstMacOSWithKeys;
}

}  // namespace

std::optional<Temperatures> readTemperatures(const Host& host, TaskRunner& runner) {
  const auto brand = cpuBrand(runner);
  if (!brand) return std::nullopt;
  if (contains(*brand, "Intel"))
    return parsePowermetrics(runner.runCommandStreaming("powermetrics", {"-s", "smc", "-n1", "-i1"}));
  if (!knowsKeys(host)) {
    logEvent("readTemperatures M-series requires macOS 12.0 or later");
    return std::nullopt;
  }
  return Temperatures{averageTemperature(false, *brand, host), averageTemperature(true, *brand, host)};
}

std::optional<std::string> cpuBrand(TaskRunner& runner) {
  std::string brand = runner.runCommand("sysctl", {"-n", "machdep.cpu.brand_string"});
  if (brand.empty()) return std::nullopt;
  return brand;
}

Temperatures parsePowermetrics(std::string_view text) {
  Temperatures found;
  for (const std::string_view line : lines(text)) {
    if (line.starts_with(kCPUTemperature)) found.cpu = temperature(line).value_or(found.cpu);
    if (line.starts_with(kGPUTemperature)) found.gpu = temperature(line).value_or(found.gpu);
  }
  return found;
}

double averageTemperature(bool isGPU, std::string_view brand, const Host& host) {
  const auto* const chip = std::find_if(std::begin(kChips), std::end(kChips), [brand](const Chip& candidate) {
    return contains(brand, candidate.name);
  });
  if (chip == std::end(kChips)) return 0;
  double sum = 0;
  int count = 0;
  for (const std::string_view key : words(isGPU ? chip->gpuKeys : chip->cpuKeys)) {
    const auto reading = host.smc().readKeyValue(key);
    if (!reading || !(*reading > kCoolest && *reading < kHottest)) continue;
    sum += *reading;
    ++count;
  }
  return count == 0 ? 0 : std::round(sum / count * 10) / 10;
}

}  // namespace msp
