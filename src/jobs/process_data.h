#pragma once

#include <cstdint>
#include <string>

#include "api/json_utilities.h"

namespace msp {

/// One process. The field names are the JSON keys.
struct ProcessData {
  std::string name;
  std::int64_t pid = 0;
  double cpu_time = 0;            // percent of a processor, in spite of its name
  std::int64_t physical_ram = 0;  // kibibytes
  std::string peak_ram;           // always empty, nothing fills it
  std::string file_name;          // the name again

  bool operator==(const ProcessData&) const = default;
};

void to_json(Json& json, const ProcessData& process);

}  // namespace msp
