#include "jobs/process_jobs.h"

#include "jobs/jobs_manager.h"
#include "platform/text.h"

namespace msp {

std::vector<ProcessData> parseProcesses(std::string_view output) {
  const auto allLines = lines(output);
  std::vector<ProcessData> processes;
  processes.reserve(allLines.size());
  for (const std::string_view line : allLines) {
    const auto pieces = words(line);
    if (pieces.size() != 4) continue;          // a name with a blank is left out on purpose, not put together
    const auto pid = parseInteger(pieces[0]);  // none in the heading
    const auto cpu = parseDouble(pieces[1]);
    const auto residentSize = parseInteger(pieces[2]);
    if (!pid || !cpu || !residentSize) continue;
    const std::string name(pieces[3]);
    processes.push_back({name, *pid, *cpu, *residentSize, "", name});
  }
  return processes;
}

JobResult JobsManager::listProcesses(const Job& job) const {
  const std::int64_t id = jobID(job);
  const std::string output =
      host_->makeTaskRunner()->runCommandStreaming("ps", {"-ax", "-c", "-r", "-o", "pid,%cpu,rss,comm"});
  if (output.empty()) {
    logJobProblem(job, "Unable to list processes");
    return failure(id, "Error - unable to list processes.");
  }
  return {.id = id, .message = "", .success = 1, .processes = parseProcesses(output)};
}

}  // namespace msp
