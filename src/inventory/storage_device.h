#pragma once

#include <cstdint>
#include <string>

#include "api/json_utilities.h"

namespace msp {

/// One mounted disk or volume. The field names are the JSON keys.
struct StorageDevice {
  std::string device;
  std::string mount_point;
  std::string file_system;
  std::string options;
  std::int64_t size = 0;  // bytes
  std::int64_t free = 0;  // bytes

  bool operator==(const StorageDevice&) const = default;
};

void to_json(Json& json, const StorageDevice& device);

}  // namespace msp
