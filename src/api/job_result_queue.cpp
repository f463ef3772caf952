#include "api/job_result_queue.h"

#include <iterator>
#include <utility>

namespace msp {

void JobResultQueue::append(JobResult result) {
  const MutexLock lock(mutex_);
  results_.push_back(std::move(result));
}

void JobResultQueue::appendAll(std::vector<JobResult> results) {
  const MutexLock lock(mutex_);
  results_.insert(results_.end(), std::make_move_iterator(results.begin()),
                  std::make_move_iterator(results.end()));
}

void JobResultQueue::clear() {
  const MutexLock lock(mutex_);
  results_ = {};
}

std::vector<JobResult> JobResultQueue::snapshot() const {
  const MutexLock lock(mutex_);
  return results_;
}

}  // namespace msp
