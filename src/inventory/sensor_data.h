#pragma once

#include <string>

#include "api/json_utilities.h"

namespace msp {

/// One sensor's reading. The field names are the JSON keys.
struct SensorData {
  std::string hardware_type;
  std::string type;
  double value = 0;  // degrees Celsius
  std::string name;

  bool operator==(const SensorData&) const = default;
};

void to_json(Json& json, const SensorData& sensor);

}  // namespace msp
