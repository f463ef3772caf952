#include "inventory/storage_device.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const StorageDevice& device) {
  Json::object_t object;
  object.emplace_back("device", device.device);
  object.emplace_back("mount_point", device.mount_point);
  object.emplace_back("file_system", device.file_system);
  object.emplace_back("options", device.options);
  object.emplace_back("size", device.size);
  object.emplace_back("free", device.free);
  json = std::move(object);
}

}  // namespace msp
