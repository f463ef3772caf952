#pragma once

#include <vector>

#include "jobs/job_result.h"
#include "platform/mutex.h"

namespace msp {

/// The results that wait for the next check-in. Each operation is atomic towards the others.
class JobResultQueue {
 public:
  void append(JobResult result);
  void appendAll(std::vector<JobResult> results);
  void clear();
  [[nodiscard]] std::vector<JobResult> snapshot() const;

 private:
  mutable Mutex mutex_;
  std::vector<JobResult> results_ MSP_GUARDED_BY(mutex_);
};

}  // namespace msp
