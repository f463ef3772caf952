#include "inventory/sensor_data.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(SensorData, everyFieldIsEncodedInItsOrder) {
  const SensorData sensor{
      .hardware_type = "GpuApple", .type = "temperature", .value = 41.25, .name = "GPU Core"};
  EXPECT_EQ(Json(sensor).dump(),
            R"({"hardware_type":"GpuApple","type":"temperature","value":41.25,"name":"GPU Core"})");
}

}  // namespace
}  // namespace msp
