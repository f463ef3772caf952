#pragma once

#include "jobs/job.h"
#include "jobs/job_result.h"
#include "platform/host.h"

namespace msp {

/// Every job handler, in the order of the dispatch table: job in, result out. Has no state of its own and
/// is safe on any thread; a handler blocks until its tools have ended.
class JobsManager {
 public:
  /// `host` must outlive the manager.
  explicit JobsManager(const Host& host) : host_(&host) {}

  /// "get_processes": every process whose name is one word, by falling CPU use.
  [[nodiscard]] JobResult listProcesses(const Job& job) const;

 private:
  const Host* host_;
};

}  // namespace msp
