#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "jobs/local_user_listing.h"

namespace msp {
namespace {

constexpr int kAccounts = 1000;

/// A directory listing as dscl(1) prints it: records whose full name stands on a line of its own, every tenth
/// one of the system's.
std::string directoryListing() {
  std::string listing;
  for (int i = 0; i < kAccounts; ++i) {
    const std::string name = "account" + std::to_string(i);
    listing += "PrimaryGroupID: 20\nRealName:\n The Person " + std::to_string(i) + "\nRecordName: " + name +
               " com.apple.idms.appleid.prd.000000-05-4e5f6071-8293-4a5b-8c7d-000000000002\nUniqueID: " +
               std::to_string(i % 10 == 0 ? 200 : 501 + i) + "\n-\n";
  }
  return listing;
}

/// Launches nothing: what is measured is text in, records out.
class PreparedRunner : public TaskRunner {
 public:
  std::string runCommand(const std::string& command, const std::vector<std::string>& arguments) override {
    return command == "id" ? "20 12 61 79 80 81 98 701 33 100 204 250 395 398"
                           : "Policy allows user <" + arguments[1] + "> to authenticate";
  }
  std::string runCommandStreaming(const std::string& /*command*/,
                                  const std::vector<std::string>& /*arguments*/) override {
    return listing_;
  }

 private:
  std::string listing_ = directoryListing();
};

/// Goal: at most 5 ms.
void listUsers(benchmark::State& state) {
  PreparedRunner runner;
  if (readLocalUsers(true, "80", runner).size() != kAccounts * 9 / 10)
    state.SkipWithError("a user is missing");
  for (auto _ : state) benchmark::DoNotOptimize(readLocalUsers(true, "80", runner));
}
BENCHMARK(listUsers)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace msp
