#pragma once

#include <string>

#include "api/json_utilities.h"

namespace msp {

/// One launchd job. The field names are the JSON keys.
struct Service {
  std::string name;
  std::string status;
  std::string service;  // the name again

  bool operator==(const Service&) const = default;
};

void to_json(Json& json, const Service& service);

}  // namespace msp
