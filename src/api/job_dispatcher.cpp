#include "api/job_dispatcher.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <exception>
#include <iterator>
#include <string_view>

namespace msp {
namespace {

using Handler = std::optional<JobResult> (*)(const JobsManager& jobs, const Job& job,
                                             const ResultSink& later);

template <auto handler>
std::optional<JobResult> answer(const JobsManager& jobs, const Job& job, const ResultSink& /*later*/) {
  return (jobs.*handler)(job);
}

constexpr char kStart[] = "start", kStop[] = "stop", kRestart[] = "restart";
template <const auto& mode>
std::optional<JobResult> switchService(const JobsManager& jobs, const Job& job, const ResultSink& /*later*/) {
  return jobs.switchService(job, mode);
}

std::optional<JobResult> startDownload(const JobsManager& jobs, const Job& job, const ResultSink& later) {
  jobs.downloadFile(job, later);
  return std::nullopt;
}

struct JobType {
  std::string_view type;
  Handler handler;
};

// Exact match; the first row wins.
constexpr JobType kJobTypes[] = {
    {"execute_command", answer<&JobsManager::executeCommand>},
    {"get_processes", answer<&JobsManager::listProcesses>},
    {"kill_process", answer<&JobsManager::killProcess>},
    {"download_file_from_url", startDownload},
    {"restart", answer<&JobsManager::restart>},
    {"create_local_user_account", answer<&JobsManager::createLocalUserAccount>},
    {"get_storage_devices", answer<&JobsManager::listStorageDevices>},
    {"get_network_interfaces", answer<&JobsManager::listNetworkInterfaces>},
    {"get_services", answer<&JobsManager::listServices>},
    {"restart_service", switchService<kRestart>},
    {"start_service", switchService<kStart>},
    {"stop_service", switchService<kStop>},
    {"get_sensors", answer<&JobsManager::readSensors>},
    {"get_local_users", answer<&JobsManager::listLocalUsers>},
    {"modify_local_user_account", answer<&JobsManager::modifyLocalUserAccount>},
};

std::optional<JobResult> runHandler(const JobType& row, const JobsManager& jobs, const Job& job,
                                    const ResultSink& later) {
  // A handler that throws is a defect; it costs its own result and nothing else.
  std::string reason = "unknown error";
  try {
    return row.handler(jobs, job, later);
  } catch (const std::exception& error) {
    reason = error.what();
  } catch (...) {
  }
  logJobProblem(job, "Unable to finish job, " + reason);
  return failure(jobID(job), "Error - unable to finish job");
}

}  // namespace

std::optional<JobResult> runJob(const JobsManager& jobs, const Job& job, const ResultSink& later) {
  const auto type = stringValue(job, "type");
  if (!type) return std::nullopt;
  const auto* const row = std::find_if(std::begin(kJobTypes), std::end(kJobTypes),
                                       [&](const JobType& candidate) { return candidate.type == *type; });
  if (row == std::end(kJobTypes)) {
    logJobProblem(job, "Unknown task");
    return failure(jobID(job), "Unknown task " + *type);
  }
  return runHandler(*row, jobs, job, later);
}

}  // namespace msp
