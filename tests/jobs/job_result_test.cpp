#include "jobs/job_result.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(JobResult, aResultWithoutListsHasThreeKeys) {
  EXPECT_EQ(Json(JobResult{}).dump(), R"({"id":0,"message":"","success":0})");
  EXPECT_EQ(Json(JobResult{.id = -7, .message = "done\n", .success = 1}).dump(),
            R"({"id":-7,"message":"done\n","success":1})");
}

TEST(JobResult, anEmptyListIsWrittenAndAnAbsentOneIsNot) {
  const JobResult result{.id = 1, .message = "", .success = 1, .services = std::vector<Service>{}};
  EXPECT_EQ(Json(result).dump(), R"({"id":1,"message":"","success":1,"services":[]})");
}

TEST(JobResult, everyListHasItsPlace) {
  const JobResult result{
      .id = 1,
      .message = "m",
      .success = 1,
      .processes =
          {{{.name = "p", .pid = 2, .cpu_time = 0.5, .physical_ram = 3, .peak_ram = "", .file_name = "p"}}},
      .storage_devices = {{StorageDevice{}}},
      .network_interfaces = {{NetworkInterface{}}},
      .services = {{{.name = "s", .status = "Stopped", .service = "s"}}},
      .sensors = {{{.hardware_type = "CPU", .type = "temperature", .value = 48.25, .name = "CPU Package"}}},
      .local_users = {{{.name = "u",
                        .sid = "501",
                        .full_name = "U",
                        .enabled = true,
                        .group_members = {{.sid = "20"}}}}},
      .local_groups = {{{.name = "staff", .sid = "20"}}}};
  EXPECT_EQ(
      Json(result).dump(),
      R"({"id":1,"message":"m","success":1,)"
      R"("processes":[{"name":"p","pid":2,"cpu_time":0.5,"physical_ram":3,"peak_ram":"","file_name":"p"}],)"
      R"("storage_devices":[{"device":"","mount_point":"","file_system":"","options":"","size":0,"free":0}],)"
      R"("network_interfaces":[{"bytes_received":0,"bytes_sent":0,"ip_addresses":[],"dhcp_addresses":[],)"
      R"("gateway_addresses":[],"dns_addresses":[],"link":0,"mac_address":"","name":"","speed":0,"type":""}],)"
      R"("services":[{"name":"s","status":"Stopped","service":"s"}],)"
      R"("sensors":[{"hardware_type":"CPU","type":"temperature","value":48.25,"name":"CPU Package"}],)"
      R"("local_users":[{"name":"u","sid":"501","full_name":"U","enabled":true,"group_members":[{"sid":"20"}]}],)"
      R"("local_groups":[{"name":"staff","sid":"20"}]})");
}

}  // namespace
}  // namespace msp
