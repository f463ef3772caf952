#include "inventory/sensor_data.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const SensorData& sensor) {
  Json::object_t object;
  object.emplace_back("hardware_type", sensor.hardware_type);
  object.emplace_back("type", sensor.type);
  object.emplace_back("value", sensor.value);
  object.emplace_back("name", sensor.name);
  json = std::move(object);
}

}  // namespace msp
