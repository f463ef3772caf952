#include "jobs/process_data.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const ProcessData& process) {
  // A listing has thousands of these: no growth, and no search for keys that are known to differ.
  constexpr std::size_t kFields = 6;
  Json::object_t object;
  object.reserve(kFields);
  object.emplace_back("name", process.name);
  object.emplace_back("pid", process.pid);
  object.emplace_back("cpu_time", process.cpu_time);
  object.emplace_back("physical_ram", process.physical_ram);
  object.emplace_back("peak_ram", process.peak_ram);
  object.emplace_back("file_name", process.file_name);
  json = std::move(object);
}

}  // namespace msp
