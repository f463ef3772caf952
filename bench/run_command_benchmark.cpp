// What runCommand costs beyond the launch of the tool itself.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/child_system.h"
#include "platform/descriptors.h"
#include "platform/task_runner.h"

namespace {

constexpr const char* kTrivialTool = "/bin/true";

/// The least that yields a tool's output: one pipe, posix_spawn, read to the end, waitpid.
void launchBare() {
  msp::Pipe pipe;
  if (msp::openPipe(pipe) != 0) std::abort();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe.writingEnd.number(), STDOUT_FILENO);
  std::string path = kTrivialTool;
  std::vector<char*> arguments{path.data(), nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, path.c_str(), &actions, nullptr, arguments.data(), msp::environment()) != 0)
    std::abort();
  posix_spawn_file_actions_destroy(&actions);
  pipe.writingEnd.close();
  char chunk[4096];
  while (read(pipe.readingEnd.number(), chunk, sizeof chunk) > 0) continue;
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) std::abort();
}

template <typename Work>
double microseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Both turn by turn, so that whatever else the machine does weighs on both alike. `ratio` is the quotient of
/// the medians.
void runCommandAgainstBareLaunch(benchmark::State& state) {
  msp::TaskRunner runner;
  std::vector<double> bare;
  std::vector<double> full;
  for ([[maybe_unused]] const auto iteration : state) {
    bare.push_back(microseconds(launchBare));
    full.push_back(
        microseconds([&runner] { benchmark::DoNotOptimize(runner.runCommand(kTrivialTool, {})); }));
  }
  state.counters["bare_us"] = median(bare);
  state.counters["run_command_us"] = median(full);
  state.counters["ratio"] = median(full) / median(bare);
}
BENCHMARK(runCommandAgainstBareLaunch)->Iterations(2000)->Repetitions(9)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
