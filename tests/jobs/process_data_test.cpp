#include "jobs/process_data.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(ProcessData, everyFieldIsEncodedInItsOrder) {
  const ProcessData process{
      .name = "mds", .pid = 91, .cpu_time = 1.2, .physical_ram = 22044, .peak_ram = "", .file_name = "mds"};
  EXPECT_EQ(Json(process).dump(),
            R"({"name":"mds","pid":91,"cpu_time":1.2,"physical_ram":22044,"peak_ram":"","file_name":"mds"})");
}

}  // namespace
}  // namespace msp
