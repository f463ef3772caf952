#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

#include "api/json_utilities.h"
#include "jobs/job_result.h"

/// How a handler reads a job: a JSON object with "id", "type" and "arguments", all of them texts.
/// Everything here is safe on any thread.
namespace msp {

using Job = Json;

/// The job's id: its text as a strict integer, 0 when it is missing, no text or no integer. A JSON number
/// yields 0 too: the server sends ids as text.
std::int64_t jobID(const Job& job);

struct JobArguments {
  std::int64_t id = 0;
  /// Nothing when "arguments" is missing, is no text or holds no JSON object.
  std::optional<Json> arguments;
};
JobArguments jobArguments(const Job& job);

/// Logs a job that cannot be carried out: the text, the job's type, and its arguments when it has any. For
/// instance: Unable to find process ID: kill_process: ["pid": 12]
void logJobProblem(const Job& job, const std::string& text);

/// A result without lists, `success` 0.
JobResult failure(std::int64_t id, std::string message);

}  // namespace msp
