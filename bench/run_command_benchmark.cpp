// What runCommand costs beyond the launch of the tool itself.
#include <benchmark/benchmark.h>

#include <vector>

#include "platform/task_runner.h"
#include "support/bare_launch.h"
#include "support/timing.h"

namespace msp::bench {
namespace {

constexpr const char* kTrivialTool = "/bin/true";

/// Both turn by turn, so that whatever else the machine does weighs on both alike; each once unmeasured
/// before, so that it finds the processor as it left it and not as the other one did. `ratio` is the quotient
/// of the medians.
void runCommandAgainstBareLaunch(benchmark::State& state) {
  const Launch launch{kTrivialTool, {}};
  TaskRunner runner;
  std::vector<double> bare;
  std::vector<double> full;
  for ([[maybe_unused]] const auto iteration : state) {
    bare.push_back(secondTime([&launch] { benchmark::DoNotOptimize(launchBare(launch)); }));
    full.push_back(secondTime([&runner] { benchmark::DoNotOptimize(runner.runCommand(kTrivialTool, {})); }));
  }
  state.counters["bare_ms"] = median(bare);
  state.counters["run_command_ms"] = median(full);
  state.counters["ratio"] = median(full) / median(bare);
}
BENCHMARK(runCommandAgainstBareLaunch)->Iterations(1000)->Repetitions(9)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace msp::bench
