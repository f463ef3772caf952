#pragma once

#include <optional>

#include "jobs/job.h"
#include "jobs/jobs_manager.h"

namespace msp {

/// Runs one job by its `type`, blocking until it is done; safe on any thread. Nothing when the job has no
/// usable type. An unknown type is a failed result, and so is a handler that throws.
std::optional<JobResult> runJob(const JobsManager& jobs, const Job& job);

}  // namespace msp
