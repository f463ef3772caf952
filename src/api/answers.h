#pragma once

#include <optional>
#include <string>
#include <vector>

#include "api/json_utilities.h"
#include "jobs/job.h"

/// What the server's answers say. An answer is a dictionary, or nothing when the request failed.
namespace msp {

struct RegistrationAnswer {
  std::string uuid;  // "" unless the server sent a text
  std::string id;    // "" unless the server sent a text: a number is none
};
/// Nothing unless `success` is 1.
std::optional<RegistrationAnswer> readRegistrationAnswer(const std::optional<Json>& answer);

/// Whether `test_success` is 1.
bool readTestAnswer(const std::optional<Json>& answer);

struct CheckInAnswer {
  std::vector<Job> jobs;                   // in the server's order
  std::optional<double> checkin_interval;  // seconds, any number
};
/// Nothing unless `success` is 1.
std::optional<CheckInAnswer> readCheckInAnswer(std::optional<Json> answer);

}  // namespace msp
