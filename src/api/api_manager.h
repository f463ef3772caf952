#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/config.h"
#include "api/job_result_queue.h"
#include "api/transport.h"
#include "inventory/gathered_data.h"
#include "jobs/jobs_manager.h"
#include "platform/host.h"
#include "platform/http_client.h"
#include "platform/mutex.h"

namespace msp {

/// Starts work on a serial background queue of its own under this label; false when there is none to be had.
using BatchStarter = std::function<bool(const std::string& label, std::function<void()> work)>;

/// The client of the management server: identity, registration, check-ins, jobs and their results.
///
/// Safe on any thread. Lives as long as the process: requests and job batches refer to it until they end.
class APIManager {
 public:
  /// Loads the stored identity, or starts registration when there is none; that goes on by itself. It is
  /// attempted once. `directory` is the agent's; `host` and `http` must outlive the manager.
  APIManager(std::string agentVersion, const std::string& directory, const Host& host, HttpClient& http,
             BatchStarter startBatch);
  ~APIManager() = default;
  APIManager(const APIManager&) = delete;
  APIManager& operator=(const APIManager&) = delete;

  /// True once an identity was loaded, or a new one has passed its test; then for good.
  [[nodiscard]] bool readyForUse() const { return readyForUse_; }

  /// Seconds between check-ins as the server last asked for; nothing before it ever did.
  [[nodiscard]] std::optional<double> receivedCheckinInterval() const;

  /// The results that wait for the next check-in.
  [[nodiscard]] std::vector<JobResult> jobResults() const { return jobResults_.snapshot(); }
  void appendJobResult(JobResult result) { jobResults_.append(std::move(result)); }

  /// Posts the report and carries out what the answer asks for. `exchange` is held until the answer has
  /// been dealt with or there will be none; the jobs may go on after that.
  void checkIn(const GatheredData& report, std::shared_ptr<const void> exchange);

 private:
  void loadConfig();
  void registerAgent();
  void handleRegistrationAnswer(const std::optional<Json>& answer, const std::string& url);
  void testConfig(const std::string& url);
  void handleTestAnswer(bool passed);
  void handleCheckInAnswer(std::optional<Json> answer);
  void runJobs(std::vector<Job> jobs);

  [[nodiscard]] std::optional<Config> agentConfig() const;
  void setAgentConfig(Config config);

  const std::string agentVersion_;
  const ConfigFiles files_;
  const Host& host_;
  HttpClient& http_;
  Transport transport_;
  const JobsManager jobsManager_;
  const BatchStarter startBatch_;
  JobResultQueue jobResults_;
  std::atomic<bool> readyForUse_ = false;
  mutable Mutex mutex_;
  std::optional<Config> agentConfig_ MSP_GUARDED_BY(mutex_);
  std::optional<double> receivedCheckinInterval_ MSP_GUARDED_BY(mutex_);
};

}  // namespace msp
