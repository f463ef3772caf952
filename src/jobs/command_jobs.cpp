#include <chrono>
#include <string>
#include <vector>

#include "jobs/jobs_manager.h"
#include "platform/text.h"
#include "platform/time_format.h"

namespace msp {

JobResult JobsManager::executeCommand(const Job& job) const {
  const auto [id, arguments] = jobArguments(job);
  if (!arguments) {
    logJobProblem(job, "Unable to parse args for execute command");
    return failure(id, "Error - unable to parse command to execute");
  }
  const auto command = stringValue(*arguments, "command");
  if (!command) {
    logJobProblem(job, "Unable to find command");
    return failure(id, "Error - unable to find command to execute");
  }
  // No quoting and no shell, on purpose: two blanks in a row pass an empty argument.
  const auto pieces = splitAtWhiteSpace(*command);
  if (pieces.empty()) {  // never: even an empty text is one piece
    logJobProblem(job, "no command");
    return failure(id, "Error - no command to execute");
  }
  const std::string output = host_->makeTaskRunner()->runCommand(
      std::string(pieces.front()), std::vector<std::string>(pieces.begin() + 1, pieces.end()));
  // What was printed decides, not the exit status, on purpose.
  return {.id = id, .message = output, .success = output.empty() ? 0 : 1};
}

JobResult JobsManager::killProcess(const Job& job) const {
  const auto [id, arguments] = jobArguments(job);
  if (!arguments) {
    logJobProblem(job, "Unable to parse args for kill command");
    return failure(id, "Error - unable to parse command to execute");
  }
  const auto pid = stringValue(*arguments, "pid");  // a JSON number is refused
  if (!pid) {
    logJobProblem(job, "Unable to find process ID");
    return failure(id, "Error - unable to extract process ID.");
  }
  const std::string output = host_->makeTaskRunner()->runCommand("kill", {*pid});
  if (output.ends_with("failed: no such process")) {
    logJobProblem(job, "No task with that ID");
    return failure(id, "Error - " + output);
  }
  return {.id = id, .message = "", .success = 1};
}

JobResult JobsManager::restart(const Job& job) const {
  const auto inOneMinute = std::chrono::system_clock::now() + std::chrono::seconds(60);
  host_->makeTaskRunner()->runCommand("shutdown", {"-r", formatClockTime(inOneMinute)});
  return {.id = jobID(job), .message = "Restarting", .success = 1};
}

}  // namespace msp
