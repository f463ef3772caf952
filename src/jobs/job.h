#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "api/json_utilities.h"

/// How a handler reads a job: a JSON object with "id", "type" and "arguments", all of them texts.
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

/// Logs a job that cannot be carried out: the text, the job's type, and its arguments when it has any.
void logJobProblem(const Job& job, const std::string& text);

/// A result without lists, `success` 0.
struct JobResult failure(std::int64_t id, std::string message);

}  // namespace msp
