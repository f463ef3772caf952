#include "api/job_dispatcher.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <exception>
#include <iterator>
#include <string_view>

namespace msp {
namespace {

struct JobType {
  std::string_view type;
  JobResult (*handler)(const JobsManager& jobs, const Job& job);
};

// Exact match; the first row wins.
constexpr JobType kJobTypes[] = {
    {"get_processes", [](const JobsManager& jobs, const Job& job) { return jobs.listProcesses(job); }},
};

JobResult runHandler(const JobType& row, const JobsManager& jobs, const Job& job) {
  // A handler that throws is a defect; it costs its own result and nothing else.
  std::string reason = "unknown error";
  try {
    return row.handler(jobs, job);
  } catch (const std::exception& error) {
    reason = error.what();
  } catch (...) {
  }
  logJobProblem(job, "Unable to finish job, " + reason);
  return failure(jobID(job), "Error - unable to finish job");
}

}  // namespace

std::optional<JobResult> runJob(const JobsManager& jobs, const Job& job) {
  const auto type = stringValue(job, "type");
  if (!type) return std::nullopt;
  const auto* const row = std::find_if(std::begin(kJobTypes), std::end(kJobTypes),
                                       [&](const JobType& candidate) { return candidate.type == *type; });
  if (row == std::end(kJobTypes)) {
    logJobProblem(job, "Unknown task");
    return failure(jobID(job), "Unknown task " + *type);
  }
  return runHandler(*row, jobs, job);
}

}  // namespace msp
