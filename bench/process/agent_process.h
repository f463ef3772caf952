#pragma once

#include <sys/types.h>

#include <chrono>

namespace msp::bench {

/// The agent's executable, started where it is installed; killed with this object.
class AgentProcess {
 public:
  /// Ends the benchmark when the agent cannot be launched.
  AgentProcess();
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  [[nodiscard]] pid_t id() const { return id_; }
  /// The moment before the launch.
  [[nodiscard]] std::chrono::steady_clock::time_point startedAt() const { return startedAt_; }

 private:
  std::chrono::steady_clock::time_point startedAt_;
  pid_t id_ = 0;
};

}  // namespace msp::bench
