#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "mac/simulated_mac.h"
#include "support/temporary_directory.h"

namespace msp::test {

using Clock = std::chrono::steady_clock;

/// Waits until the condition holds, and looks again at every change in the directory's files. False when it
/// does not hold at the deadline.
[[nodiscard]] bool waitForChange(const std::string& directory, Clock::time_point deadline,
                                 const std::function<bool()>& condition);

/// What the system tells of a process at one moment.
struct ProcessFacts {
  std::size_t threads = 0;
  std::vector<std::string> descriptors;       // what each is open on
  std::int64_t privateKiB = 0;                // anonymous pages
  std::int64_t voluntaryContextSwitches = 0;  // of all threads
};

/// The agent's executable, installed in a simulated Mac and running in its sandbox.
///
/// The process is killed and reaped with this object, and by the system should the test die first. One
/// thread, the one that started it.
class AgentProcess {
 public:
  struct Surroundings {
    std::string hostName;
    bool readOnlyDirectory = false;  // the agent's own
  };

  /// Throws std::system_error when there is no process to be had. What goes wrong between that and the
  /// agent's own start is told on standard error.
  AgentProcess(const lab::SimulatedMac& mac, const Surroundings& surroundings);
  ~AgentProcess() { kill(); }
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  /// Whether it has not ended yet, by itself or by kill().
  [[nodiscard]] bool runs() const;
  void kill();

  /// All that it printed so far.
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string error() const;
  [[nodiscard]] bool waitForOutput(Clock::time_point deadline, const std::function<bool()>& condition) const;

  [[nodiscard]] ProcessFacts facts() const;
  /// Its children that ended and were not waited for yet.
  [[nodiscard]] std::set<pid_t> zombies() const;

 private:
  TemporaryDirectory streams_;
  pid_t id_ = 0;
};

}  // namespace msp::test
