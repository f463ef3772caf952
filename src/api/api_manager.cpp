#include "api/api_manager.h"

#include <nlohmann/json.hpp>

#include <utility>

#include "api/answers.h"
#include "api/envelope.h"
#include "api/job_dispatcher.h"
#include "platform/uuid.h"

namespace msp {

APIManager::APIManager(std::string agentVersion, const std::string& directory, const Host& host,
                       HttpClient& http, BatchStarter startBatch)
    : agentVersion_(std::move(agentVersion)),
      files_(directory),
      host_(host),
      http_(http),
      transport_(http),
      jobsManager_(host, http),
      startBatch_(std::move(startBatch)) {
  loadConfig();
}

std::optional<double> APIManager::receivedCheckinInterval() const {
  const MutexLock lock(mutex_);
  return receivedCheckinInterval_;
}

std::optional<Config> APIManager::agentConfig() const {
  const MutexLock lock(mutex_);
  return agentConfig_;
}

void APIManager::setAgentConfig(Config config) {
  const MutexLock lock(mutex_);
  agentConfig_ = std::move(config);
}

void APIManager::checkIn(const GatheredData& report, std::shared_ptr<const void> exchange) {
  const auto config = agentConfig();
  if (!config) {
    registerAgent();
    return;
  }
  transport_.post(checkInRequest(config->api_uuid, report.jsonText()), config->api_url,
                  [this, exchange = std::move(exchange)](std::optional<Json> answer) {
                    handleCheckInAnswer(std::move(answer));
                  });
}

void APIManager::handleCheckInAnswer(std::optional<Json> answer) {
  auto checkIn = readCheckInAnswer(std::move(answer));
  if (!checkIn) return;
  // Emptied now, not when the report was taken: a result that came in between is dropped, on purpose.
  jobResults_.clear();
  runJobs(std::move(checkIn->jobs));
  if (checkIn->checkin_interval) {
    const MutexLock lock(mutex_);
    receivedCheckinInterval_ = checkIn->checkin_interval;
  }
}

void APIManager::runJobs(std::vector<Job> jobs) {
  if (jobs.empty()) return;
  const auto batch = std::make_shared<const std::vector<Job>>(std::move(jobs));
  const bool started = startBatch_("org.msp-agent.agent-jobs." + makeUuid(), [this, batch] {
    std::vector<JobResult> results;
    const ResultSink later = [this](JobResult result) { appendJobResult(std::move(result)); };
    for (const Job& job : *batch) {
      if (auto result = runJob(jobsManager_, job, later)) results.push_back(std::move(*result));
    }
    jobResults_.appendAll(std::move(results));
  });
  if (started) return;
  // There is no thread for them: the server is told, rather than left to wait for these jobs.
  std::vector<JobResult> results;
  for (const Job& job : *batch) {
    if (!stringValue(job, "type")) continue;
    logJobProblem(job, "Unable to start job queue");
    results.push_back(failure(jobID(job), "Error - unable to start job queue"));
  }
  jobResults_.appendAll(std::move(results));
}

}  // namespace msp
