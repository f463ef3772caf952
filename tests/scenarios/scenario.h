#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mac/simulated_mac.h"
#include "platform/descriptors.h"
#include "scenarios/agent_process.h"
#include "server/lab_server.h"
#include "server/protocol.h"
#include "server/public_address_server.h"
#include "support/temporary_directory.h"

namespace msp::test {

using lab::Json;

/// Long enough for the agent's 30 seconds on a machine with much else to do. A wait that takes longer is a
/// failure.
inline constexpr std::chrono::seconds kPatience{90};

/// A simulated Mac with the agent installed on it, a management server and a public-address service of its
/// own. The agent is started by the test.
///
/// What does not come in time throws std::runtime_error, which tells what was waited for and what the agent
/// printed; a test fails by it. Destroying a lab fails the test when the agent ended by itself or printed
/// anything to standard error, where a sanitizer reports.
class Lab {
 public:
  using Deadline = Clock::time_point;

  explicit Lab(std::string_view machine = "m2-sonoma");
  ~Lab();
  Lab(const Lab&) = delete;
  Lab& operator=(const Lab&) = delete;

  lab::SimulatedMac& mac() { return mac_; }
  lab::LabServer& server() { return server_; }
  lab::PublicAddressServer& publicAddress() { return publicAddress_; }
  AgentProcess& agent() { return *agent_; }

  void startAgent() { start({}); }
  /// Where the agent can write nothing in its own directory.
  void startAgentInReadOnlyDirectory();
  /// It can be started again.
  void killAgent();

  /// Leaves an identity in config.ini, as a version of the agent stored it.
  void storeIdentity(const std::string& version = "3.3.1") const;
  /// What the stored identity is, in config.ini's form.
  [[nodiscard]] Json identity(const std::string& version = "3.3.1") const;

  /// A file in the agent's directory.
  void writeFile(const std::string& name, std::string_view content) const;
  [[nodiscard]] std::string file(const std::string& name) const;
  [[nodiscard]] std::filesystem::path path(const std::string& name) const {
    return mac_.agentDirectory() / name;
  }
  /// The names in the agent's directory, sorted.
  [[nodiscard]] std::vector<std::string> files() const;
  [[nodiscard]] int modeOf(const std::string& name) const;

  /// The messages in the event log, in order. A line that has no time stamp belongs to the message before.
  [[nodiscard]] std::vector<std::string> log() const;
  /// The lines on standard output.
  [[nodiscard]] std::vector<std::string> output() const;

  /// Waits until the event log, or standard output, holds exactly these messages. A "*" at the end of one
  /// stands for any further text, but for some.
  void expectLog(const std::vector<std::string>& messages) const;
  void expectOutput(const std::vector<std::string>& lines) const;
  /// Waits until the condition holds for the agent's directory; `what` is for the failure.
  void waitForFiles(const std::string& what, const std::function<bool()>& condition) const;

  /// The check-in of that number, from 1, as soon as it has arrived.
  lab::LabServer::ReceivedPointer checkIn(std::size_t number);
  [[nodiscard]] std::size_t checkIns() const { return server_.received("checkin").size(); }
  /// The first result of the job, as soon as it has arrived. With a short interval one may get lost: a result
  /// that comes between a report and the answer to it is dropped. See succeedOnlyWithJobs().
  Json result(std::int64_t jobId);
  /// Lets the server report success only when it hands out jobs: their results stay until the next jobs.
  void succeedOnlyWithJobs();

  /// Waits until a tool has been launched for a command line that is held. The tool goes on waiting for as
  /// long as the result lives.
  [[nodiscard]] Descriptor waitForTool(std::string_view commandLine) const;

  [[noreturn]] void fail(const std::string& problem) const;

 private:
  void start(AgentProcess::Surroundings surroundings);
  void checkAgent() const;

  TemporaryDirectory place_;
  const std::string machine_;
  lab::SimulatedMac mac_;
  lab::LabServer server_;
  lab::PublicAddressServer publicAddress_;
  std::unique_ptr<AgentProcess> agent_;
};

/// Skips its tests, with the reason, where the system does not allow scenarios.
class Scenario : public testing::Test {
 protected:
  void SetUp() override;
};

/// The job results that a check-in brought.
[[nodiscard]] Json resultsIn(const lab::Received& checkIn);

/// A result without lists, as it is sent.
[[nodiscard]] Json plainResult(std::int64_t id, const std::string& message, int success);

/// An element of a process listing's result.
[[nodiscard]] Json process(const std::string& name, std::int64_t pid, double cpuTime, std::int64_t memory);

/// The object with these keys changed or added.
[[nodiscard]] Json merged(Json object, const Json& changes);

}  // namespace msp::test
