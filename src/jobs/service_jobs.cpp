#include <string>

#include "jobs/jobs_manager.h"
#include "jobs/service_control.h"
#include "platform/event_log.h"

namespace msp {

JobResult JobsManager::listServices(const Job& job) const {
  const std::int64_t id = jobID(job);
  auto services = msp::listServices(*host_->makeTaskRunner());
  if (services.empty()) {
    logEvent("No services detected.");
    return failure(id, "No services detected.");
  }
  return {.id = id, .message = "", .success = 1, .services = std::move(services)};
}

JobResult JobsManager::switchService(const Job& job, const std::string& mode) const {
  const auto [id, arguments] = jobArguments(job);
  const auto name = arguments ? stringValue(*arguments, "service_name") : std::nullopt;
  if (!name) {
    logJobProblem(job, "Switch Services Error: Invalid commands");
    return failure(id, "Switch Services Error: Invalid commands");
  }
  const auto runner = host_->makeTaskRunner();
  std::string outcome;
  if (mode == "start") {
    outcome = startService(*name, *host_, *runner);
  } else if (mode == "stop") {
    outcome = stopService(*name, *runner);
  } else if (mode == "restart") {
    outcome = restartService(*name, *runner);
  } else {
    // Both lines are wanted: where the mode is rejected and where the job ends.
    logJobProblem(job, "Switch Services Error: Unknown command");
    logJobProblem(job, "Switch Services Error: Unknown command");
    return failure(id, "Switch Services Error: Unknown command");
  }
  if (outcome != "OK") {
    const std::string message = "Failed to " + mode + " service " + *name + ": " + outcome + ".";
    logJobProblem(job, message);
    return failure(id, message);
  }
  const std::string done = mode == "start" ? " started." : mode == "stop" ? " stopped." : " restarted.";
  return {.id = id, .message = "Service " + *name + done, .success = 1};
}

}  // namespace msp
