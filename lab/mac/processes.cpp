#include "mac/processes.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "mac/services.h"
#include "mac/text.h"

namespace msp::lab {

namespace {

constexpr std::string_view kListing = "ps -ax -c -r -o pid,%cpu,rss,comm";
constexpr std::string_view kSampleTime = "14:05";
constexpr std::size_t kPIDWidth = 5;

ProcessRow parseRow(std::string_view line) {
  const auto start = std::min(line.find_first_not_of(' '), line.size());
  const auto end = std::min(line.find(' ', start), line.size());
  return {plainNumber(line.substr(start, end - start)), std::string(line.substr(end))};
}

std::string printRow(const ProcessRow& row) {
  const auto pid = std::to_string(row.pid);
  return std::string(kPIDWidth - std::min(kPIDWidth, pid.size()), ' ') + pid + row.rest + "\n";
}

auto findProcess(std::vector<ProcessRow>& rows, std::int64_t pid) {
  return std::find_if(rows.begin(), rows.end(), [pid](const ProcessRow& row) { return row.pid == pid; });
}

/// The rows to be changed: from now on they are the state's.
std::vector<ProcessRow>& ownProcesses(Machine& machine) {
  if (!machine.state.processes) machine.state.processes = processesOf(machine);
  return *machine.state.processes;
}

bool isClockTime(std::string_view text) {
  constexpr std::int64_t kHours = 24, kMinutes = 60;
  if (text.size() != kSampleTime.size() || text[2] != ':') return false;
  const auto hour = plainNumber(text.substr(0, 2)), minute = plainNumber(text.substr(3));
  return hour >= 0 && hour < kHours && minute >= 0 && minute < kMinutes;
}

}  // namespace

std::vector<ProcessRow> processesOf(const Machine& machine) {
  if (machine.state.processes) return *machine.state.processes;
  const auto listing = machine.sample(kListing).output;
  std::vector<ProcessRow> rows;
  for (const auto& line : split(listing, '\n')) rows.push_back(parseRow(line));
  if (!rows.empty()) rows.erase(rows.begin());  // the heading
  return rows;
}

bool isProcess(const Machine& machine, std::int64_t pid) {
  auto rows = processesOf(machine);
  return findProcess(rows, pid) != rows.end() || isServiceProcess(machine, pid);
}

bool endProcess(Machine& machine, std::int64_t pid) {
  auto rows = processesOf(machine);
  if (findProcess(rows, pid) == rows.end()) return false;
  auto& own = ownProcesses(machine);
  own.erase(findProcess(own, pid));
  return true;
}

void renumberProcess(Machine& machine, std::int64_t from, std::int64_t to) {
  auto rows = processesOf(machine);
  if (findProcess(rows, from) == rows.end()) return;
  findProcess(ownProcesses(machine), from)->pid = to;
}

MaybeAnswer listProcesses(Machine& machine, const Request& /*request*/) {
  if (!machine.state.processes) return std::nullopt;
  const auto listing = machine.sample(kListing).output;
  Answer answer{.output = listing.substr(0, listing.find('\n')) + "\n"};
  for (const auto& row : *machine.state.processes) answer.output += printRow(row);
  return answer;
}

MaybeAnswer killProcess(Machine& machine, const Request& request) {
  const auto& text = request.captures[0];
  const auto pid = plainNumber(text);
  if (pid < 0) return Answer{.error = "kill: illegal process id: " + text + "\n", .status = 2};
  const bool wasProcess = endProcess(machine, pid), wasService = endServiceProcess(machine, pid);
  if (wasProcess || wasService) return Answer{};
  auto answer = machine.sample("kill 99999");
  answer.error = replaced(answer.error, "99999", text);
  return answer;
}

MaybeAnswer planRestart(Machine& machine, const Request& request) {
  const auto& time = request.captures[0];
  if (!isClockTime(time)) return Answer{.error = "shutdown: bad time format\n", .status = 1};
  machine.state.restarts.push_back(time);
  auto answer = machine.sample("shutdown -r " + std::string(kSampleTime));
  answer.output =
      replaced(answer.output, std::string(" ") + std::string(kSampleTime) + ":", " " + time + ":");
  return answer;
}

}  // namespace msp::lab
