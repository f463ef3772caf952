#include "mac/services.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "mac/processes.h"
#include "mac/text.h"

namespace msp::lab {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kListing = "launchctl list";
constexpr const char* kNotRunning = "-";
constexpr const char* kEndedWell = "0";
constexpr const char* kTerminated = "-15";

// Samples that are printed for other services too.
constexpr std::string_view kAbsent = "org.example.absent";

Answer refusal(const Machine& machine, std::string_view command, const std::string& label) {
  auto answer = machine.sample(std::string(command));
  answer.error = replaced(answer.error, kAbsent, label);
  return answer;
}

ServiceRow parseRow(std::string_view line) {
  const auto first = std::min(line.find('\t'), line.size());
  const auto second = std::min(line.find('\t', first + 1), line.size());
  return {std::string(line.substr(0, first)), std::string(line.substr(first + 1, second - first - 1)),
          std::string(line.substr(std::min(second + 1, line.size())))};
}

auto findService(std::vector<ServiceRow>& rows, std::string_view label) {
  return std::find_if(rows.begin(), rows.end(),
                      [label](const ServiceRow& row) { return row.label == label; });
}

/// The rows to be changed: from now on they are the state's.
std::vector<ServiceRow>& ownServices(Machine& machine) {
  if (!machine.state.services) machine.state.services = servicesOf(machine);
  return *machine.state.services;
}

std::int64_t newPID(Machine& machine) {
  do {
    ++machine.state.last_pid;
  } while (isProcess(machine, machine.state.last_pid));
  return machine.state.last_pid;
}

bool isThere(const Machine& machine, const fs::path& plist) {
  std::error_code ignored;
  return plist.is_absolute() && fs::exists(machine.lab() / plist.relative_path(), ignored);
}

}  // namespace

std::vector<ServiceRow> servicesOf(const Machine& machine) {
  if (machine.state.services) return *machine.state.services;
  const auto listing = machine.sample(kListing).output;
  std::vector<ServiceRow> rows;
  for (const auto& line : split(listing, '\n')) rows.push_back(parseRow(line));
  if (!rows.empty()) rows.erase(rows.begin());  // the heading
  return rows;
}

bool isServiceProcess(const Machine& machine, std::int64_t pid) {
  const auto rows = servicesOf(machine);
  return std::any_of(rows.begin(), rows.end(),
                     [pid](const ServiceRow& row) { return plainNumber(row.pid) == pid; });
}

bool endServiceProcess(Machine& machine, std::int64_t pid) {
  if (!isServiceProcess(machine, pid)) return false;
  for (auto& row : ownServices(machine)) {
    if (plainNumber(row.pid) == pid) row = {kNotRunning, kTerminated, row.label, true};
  }
  return true;
}

MaybeAnswer listServices(Machine& machine, const Request& /*request*/) {
  if (!machine.state.services) return std::nullopt;
  const auto listing = machine.sample(kListing).output;
  Answer answer{.output = listing.substr(0, listing.find('\n')) + "\n"};
  for (const auto& row : *machine.state.services) {
    answer.output += row.pid + "\t" + row.status + "\t" + row.label + "\n";
  }
  return answer;
}

MaybeAnswer bootstrapService(Machine& machine, const Request& request) {
  const fs::path plist = request.captures[0];
  const auto label = plist.stem().string();
  const auto refused = [&] {
    return refusal(machine, "launchctl bootstrap system /Library/LaunchDaemons/org.example.absent.plist",
                   label);
  };
  if (plist.extension() != ".plist" || !isThere(machine, plist)) return refused();

  auto rows = servicesOf(machine);
  const auto loaded = findService(rows, label);
  auto filed = machine.filed(request.commandLine);
  if (filed && filed->status != 0) return filed;
  if (loaded == rows.end()) {
    ownServices(machine).push_back({kNotRunning, kEndedWell, label, true});
    return Answer{};
  }
  if (loaded->changed || !filed) return refused();
  endProcess(machine, plainNumber(loaded->pid));
  *findService(ownServices(machine), label) = {kNotRunning, kEndedWell, label, true};
  return Answer{};
}

MaybeAnswer bootOutService(Machine& machine, const Request& request) {
  const auto& label = request.captures[0];
  auto rows = servicesOf(machine);
  const auto loaded = findService(rows, label);
  if (loaded == rows.end()) return refusal(machine, "launchctl bootout system/org.example.absent", label);
  if (auto filed = machine.filed(request.commandLine); filed && filed->status != 0) return filed;
  endProcess(machine, plainNumber(loaded->pid));
  auto& own = ownServices(machine);
  own.erase(findService(own, label));
  return Answer{};
}

MaybeAnswer kickstartService(Machine& machine, const Request& request) {
  const auto& label = request.captures[0];
  auto rows = servicesOf(machine);
  const auto loaded = findService(rows, label);
  if (loaded == rows.end())
    return refusal(machine, "launchctl kickstart -k system/org.example.absent", label);
  if (auto filed = machine.filed(request.commandLine); filed && filed->status != 0) return filed;
  const auto pid = newPID(machine);
  renumberProcess(machine, plainNumber(loaded->pid), pid);
  *findService(ownServices(machine), label) = {std::to_string(pid), kEndedWell, label, true};
  return Answer{};
}

}  // namespace msp::lab
