#include "jobs/job.h"

#include <utility>

#include "platform/event_log.h"
#include "platform/text.h"

namespace msp {

std::int64_t jobID(const Job& job) {
  const auto text = stringValue(job, "id");
  return text ? parseInteger(*text).value_or(0) : 0;
}

JobArguments jobArguments(const Job& job) {
  const auto text = stringValue(job, "arguments");
  return {jobID(job), text ? JSONUtilities::parseDictionary(*text) : std::nullopt};
}

void logJobProblem(const Job& job, const std::string& text) {
  std::string line = text + ": " + stringValue(job, "type").value_or("unknown job type");
  const auto arguments = jobArguments(job).arguments;
  if (arguments) line += ": " + printedForm(*arguments);
  logEvent(line);
}

JobResult failure(std::int64_t id, std::string message) { return {id, std::move(message), 0}; }

}  // namespace msp
