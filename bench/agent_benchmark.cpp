// agent_benchmark start <rounds>
// agent_benchmark life <check-ins> [<more check-ins>]
//
// Measures the agent's executable as a whole, in the surroundings that in-simulated-mac makes, and prints one
// figure per line: its name, a blank, its value.
//
//   start  from the process's start to its first check-in's arrival, less the launches of the same tools
//   life   what a check-in costs, and what the process holds when it idles after so many; with a second
//   number
//          also what it holds after that many, and how often it wakes up in a minute without a tick

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/config.h"
#include "platform/console.h"
#include "platform/text.h"
#include "process/agent_process.h"
#include "process/paced_server.h"
#include "process/process_figures.h"
#include "support/bare_launch.h"
#include "support/refresh.h"
#include "support/timing.h"

namespace msp::bench {
namespace {

constexpr std::size_t kWarmUp = 100;  // check-ins

void print(const std::string& name, double value) {
  std::printf("%s %.3f\n", name.c_str(), value);
  std::fflush(stdout);
}

void storeIdentity(const PacedServer& server) {
  ConfigFiles("/opt/msp-agent")
      .store({server.url(), "6f1c2d3a-0b4e-4c5d-9a8b-1234567890ab", "1", "of an earlier release"});
}

void measureStart(std::size_t rounds) {
  constexpr double kNever = 3600;  // seconds
  const std::vector<Launch> launches = recordRefreshLaunches().first;
  PacedServer server;
  storeIdentity(server);
  std::vector<double> starts;
  std::vector<double> bare;
  // The first one stores the identity again, with its own version.
  for (std::size_t round = 0; round <= rounds; ++round) {
    const AgentProcess agent;
    server.run(kNever, round + 1, kNever);
    const std::chrono::duration<double, std::milli> time = server.lastArrival() - agent.startedAt();
    if (round == 0) continue;
    starts.push_back(time.count());
    bare.push_back(millisecondsFor([&launches] { launchBare(launches); }));
  }
  print("start_launches", static_cast<double>(launches.size()));
  print("start_to_check_in_ms", median(starts));
  print("start_bare_ms", median(bare));
  print("start_own_ms", median(starts) - median(bare));
}

Memory printHoldings(const AgentProcess& agent, const std::string& after) {
  const Memory memory = memoryOf(agent.id());
  print("private_kib_after_" + after, static_cast<double>(memory.privateKiB));
  print("resident_kib_after_" + after, static_cast<double>(memory.residentKiB));
  print("threads_after_" + after, static_cast<double>(threadsOf(agent.id())));
  print("descriptors_after_" + after, static_cast<double>(descriptorsOf(agent.id())));
  return memory;
}

void measureIdleMinute(const AgentProcess& agent, const PacedServer& server) {
  const std::size_t checkIns = server.checkIns();
  const std::size_t threads = threadsOf(agent.id());
  const long before = voluntarySwitchesOf(agent.id());
  std::this_thread::sleep_for(std::chrono::seconds(60));
  const long after = voluntarySwitchesOf(agent.id());
  if (server.checkIns() != checkIns || threadsOf(agent.id()) != threads) fatalError("the agent did not idle");
  print("idle_switches", static_cast<double>(after - before));
}

void measureLife(std::size_t checkIns, std::size_t manyCheckIns) {
  // Seconds between check-ins: so that refreshes do not pile up; long enough to look; longer than a minute.
  constexpr double kPace = 0.05, kPause = 15, kLongPause = 90;
  PacedServer server;
  storeIdentity(server);
  const AgentProcess agent;

  server.run(kPace, kWarmUp, kPace);
  const double cpuBefore = cpuMillisecondsOf(agent.id());
  const std::size_t checkInsBefore = server.checkIns();
  server.run(kPace, checkIns, kPause);
  const double cpu = cpuMillisecondsOf(agent.id()) - cpuBefore;
  print("cpu_ms_per_check_in", cpu / static_cast<double>(server.checkIns() - checkInsBefore));
  server.waitUntilIdle(agent.id());
  const Memory few = printHoldings(agent, "few");
  if (manyCheckIns == 0) return;

  server.run(kPace, manyCheckIns, kLongPause);
  server.waitUntilIdle(agent.id());
  const Memory many = printHoldings(agent, "many");
  print("private_kib_growth", static_cast<double>(many.privateKiB - few.privateKiB));
  print("resident_kib_growth", static_cast<double>(many.residentKiB - few.residentKiB));
  measureIdleMinute(agent, server);
}

/// Nothing when it is no number above the other one.
std::optional<std::size_t> numberAbove(std::size_t other, const char* text) {
  const auto number = parseInteger(text);
  if (!number || *number <= static_cast<std::int64_t>(other)) return std::nullopt;
  return static_cast<std::size_t>(*number);
}

int run(const std::vector<const char*>& arguments) {
  const std::string what = arguments.empty() ? "" : arguments.front();
  if (what == "start" && arguments.size() == 2) {
    if (const auto rounds = numberAbove(0, arguments[1])) {
      measureStart(*rounds);
      return 0;
    }
  }
  if (what == "life" && (arguments.size() == 2 || arguments.size() == 3)) {
    const auto checkIns = numberAbove(kWarmUp, arguments[1]);
    const auto many = checkIns && arguments.size() == 3 ? numberAbove(*checkIns, arguments[2]) : 0;
    if (checkIns && many) {
      measureLife(*checkIns, *many);
      return 0;
    }
  }
  std::fputs("usage: agent_benchmark start <rounds> | life <check-ins> [<more check-ins>]\n", stderr);
  return 2;
}

}  // namespace
}  // namespace msp::bench

int main(int argc, char** argv) { return msp::bench::run({argv + 1, argv + argc}); }
