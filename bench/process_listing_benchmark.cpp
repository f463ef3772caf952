#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <string>

#include "inventory/gathered_data.h"
#include "jobs/job_result.h"
#include "jobs/process_jobs.h"

namespace msp {
namespace {

constexpr int kProcesses = 5000;

/// A listing as ps(1) prints it on a busy Mac: by falling CPU use, short and long names. Every name is one
/// word, so that every line becomes a process.
std::string processListing() {
  constexpr std::array kNames = {"launchd", "com.apple.WebKit.WebContent", "mdworker_shared", "WindowServer",
                                 "-zsh"};
  std::string listing = "  PID  %CPU    RSS COMM\n";
  for (int i = 0; i < kProcesses; ++i) {
    std::array<char, 128> line{};
    const int tenths = (kProcesses - i) / 10;
    const int length =
        std::snprintf(line.data(), line.size(), "%5d %3d.%d %6d %s\n", i * 17 % 99999, tenths / 10,
                      tenths % 10, 1024 + i * 37, kNames[static_cast<std::size_t>(i) % kNames.size()]);
    listing.append(line.data(), static_cast<std::size_t>(length));
  }
  return listing;
}

/// Goal: at most 2 ms.
void parseProcessListing(benchmark::State& state) {
  const std::string listing = processListing();
  if (parseProcesses(listing).size() != kProcesses) state.SkipWithError("a process is missing");
  for (auto _ : state) benchmark::DoNotOptimize(parseProcesses(listing));
}
BENCHMARK(parseProcessListing)->Unit(benchmark::kMillisecond);

/// The report with the one result in it, as the next check-in carries it. Goal: at most 5 ms.
void encodeProcessListing(benchmark::State& state) {
  GatheredData report;
  report.job_results = {
      {.id = 1, .message = "", .success = 1, .processes = parseProcesses(processListing())}};
  for (auto _ : state) benchmark::DoNotOptimize(report.jsonText());
}
BENCHMARK(encodeProcessListing)->Unit(benchmark::kMillisecond);

/// The result alone as compact text: what encoding costs without the report's blanks and line feeds.
void encodeProcessListingCompactly(benchmark::State& state) {
  const JobResult result{.id = 1, .message = "", .success = 1, .processes = parseProcesses(processListing())};
  for (auto _ : state) benchmark::DoNotOptimize(Json(result).dump());
}
BENCHMARK(encodeProcessListingCompactly)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace msp
