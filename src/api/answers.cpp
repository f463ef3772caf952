#include "api/answers.h"

#include <nlohmann/json.hpp>

namespace msp {
namespace {

bool isSuccess(const std::optional<Json>& answer, const char* key) {
  return answer && integerValue(*answer, key) == 1;
}

}  // namespace

std::optional<RegistrationAnswer> readRegistrationAnswer(const std::optional<Json>& answer) {
  if (!isSuccess(answer, "success")) return std::nullopt;
  return RegistrationAnswer{stringValue(*answer, "uuid").value_or(""),
                            stringValue(*answer, "id").value_or("")};
}

bool readTestAnswer(const std::optional<Json>& answer) { return isSuccess(answer, "test_success"); }

std::optional<CheckInAnswer> readCheckInAnswer(std::optional<Json> answer) {
  if (!isSuccess(answer, "success")) return std::nullopt;
  return CheckInAnswer{takeObjectList(*answer, "jobs").value_or(std::vector<Job>{}),
                       doubleValue(*answer, "checkin_interval")};
}

}  // namespace msp
