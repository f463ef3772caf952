// What a refresh costs beyond the launch of its tools.
#include <benchmark/benchmark.h>

#include <vector>

#include "platform/host.h"
#include "platform/process_setup.h"
#include "support/bare_launch.h"
#include "support/refresh.h"
#include "support/timing.h"

namespace msp::bench {
namespace {

/// Both turn by turn, so that whatever else the machine does weighs on both alike; each once unmeasured
/// before, so that it finds the processor as it left it and not as the other one did. `ratio` is the quotient
/// of the medians.
void warmRefreshAgainstBareLaunches(benchmark::State& state) {
  prepareProcess();
  const std::vector<Launch> launches = recordRefreshLaunches().warm;
  Refresh refresh(systemHost());
  if (refresh.run().hw_serial_number.empty()) {
    state.SkipWithError("the tools are not those of a simulated Mac: run it with in-simulated-mac");
    return;
  }
  std::vector<double> bare;
  std::vector<double> full;
  for ([[maybe_unused]] const auto iteration : state) {
    bare.push_back(secondTime([&launches] { launchBare(launches); }));
    full.push_back(secondTime([&refresh] { benchmark::DoNotOptimize(refresh.run()); }));
  }
  state.counters["launches"] = static_cast<double>(launches.size());
  state.counters["bare_ms"] = median(bare);
  state.counters["refresh_ms"] = median(full);
  state.counters["ratio"] = median(full) / median(bare);
}
BENCHMARK(warmRefreshAgainstBareLaunches)->Iterations(300)->Repetitions(9)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace msp::bench
