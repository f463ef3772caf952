#pragma once

#include <functional>
#include <optional>

#include "jobs/job.h"
#include "jobs/jobs_manager.h"

namespace msp {

/// Takes the result of a job that goes on by itself, on any thread.
using ResultSink = std::function<void(JobResult)>;

/// Runs one job by its `type`, blocking until it is done; safe on any thread. Nothing when the job has no
/// usable type, and for a download, whose result goes to `later`. An unknown type is a failed result, and so
/// is a handler that throws.
std::optional<JobResult> runJob(const JobsManager& jobs, const Job& job, const ResultSink& later);

}  // namespace msp
