#include "inventory/gathered_data.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <ctime>

#include "support/time_zone.h"

namespace msp {
namespace {

/// 5 March 2024, 09:07:03 UTC.
constexpr std::time_t kMarchMorning = 1709629623;

std::chrono::system_clock::time_point marchMorning() {
  return std::chrono::system_clock::from_time_t(kMarchMorning);
}

TEST(GatheredData, aFreshReportHasItsConstantsAndNothingElse) {
  const test::TimeZone zone("UTC0");
  GatheredData report;
  report.time_stamp = marchMorning();
  EXPECT_EQ(report.jsonText(), R"({
  "agent_version": "",
  "job_results": [],
  "agent_type": "xcode",
  "get_jobs": "false",
  "primary_drive": "/",
  "ipv6_address": "",
  "wan_ipv6_address": "",
  "hw_manufacturer": "Apple Inc",
  "last_sw_update": "",
  "cpu": "",
  "os_version": "",
  "hw_serial_number": "",
  "hw_model": "",
  "ram": 0,
  "os_name": "",
  "os_build": "",
  "name": "",
  "username": "",
  "ipv4_address": "",
  "wan_ipv4_address": "",
  "uptime": 0.0,
  "load_average": "",
  "free_ram": 0,
  "primary_drive_size": 0,
  "primary_drive_free_space": 0,
  "time_stamp": "24-03-05 09:07:03"
})");
}

TEST(GatheredData, aFullReportIsWrittenInTheOrderOfItsFields) {
  const test::TimeZone zone("UTC0");
  GatheredData report;
  report.agent_version = "3.3.1";
  report.job_results = {{.id = 5, .message = "Unknown task reboot_now", .success = 0},
                        {.id = 6, .message = "", .success = 1, .processes = std::vector<ProcessData>{}}};
  report.last_sw_update = "24-05-14 22:08:03";
  report.cpu = "Apple M2";
  report.os_version = "macOS 14.5 23F79";
  report.hw_serial_number = "FX7Q2M4L0K";
  report.hw_model = "Mac14,2";
  report.ram = 17179869184;
  report.os_name = "macOS";
  report.os_build = "14.5";
  report.name = "Chloés-MacBook-Air";
  report.username = "chloe";
  report.ipv4_address = "192.168.68.114";
  report.wan_ipv4_address = "203.0.113.9\n";
  report.uptime = 970261.204;
  report.load_average = "2.81, 3.27, 3.01";
  report.free_ram = 4979605504;
  report.primary_drive_size = 494384795648;
  report.primary_drive_free_space = 184772820992;
  report.time_stamp = marchMorning();
  EXPECT_EQ(report.jsonText(), R"({
  "agent_version": "3.3.1",
  "job_results": [
    {
      "id": 5,
      "message": "Unknown task reboot_now",
      "success": 0
    },
    {
      "id": 6,
      "message": "",
      "success": 1,
      "processes": []
    }
  ],
  "agent_type": "xcode",
  "get_jobs": "false",
  "primary_drive": "/",
  "ipv6_address": "",
  "wan_ipv6_address": "",
  "hw_manufacturer": "Apple Inc",
  "last_sw_update": "24-05-14 22:08:03",
  "cpu": "Apple M2",
  "os_version": "macOS 14.5 23F79",
  "hw_serial_number": "FX7Q2M4L0K",
  "hw_model": "Mac14,2",
  "ram": 17179869184,
  "os_name": "macOS",
  "os_build": "14.5",
  "name": "Chloés-MacBook-Air",
  "username": "chloe",
  "ipv4_address": "192.168.68.114",
  "wan_ipv4_address": "203.0.113.9\n",
  "uptime": 970261.204,
  "load_average": "2.81, 3.27, 3.01",
  "free_ram": 4979605504,
  "primary_drive_size": 494384795648,
  "primary_drive_free_space": 184772820992,
  "time_stamp": "24-03-05 09:07:03"
})");
}

TEST(GatheredData, datesAreInTheMachinesTimeZone) {
  const test::TimeZone zone("EST5");
  GatheredData report;
  report.time_stamp = marchMorning();
  EXPECT_EQ(Json(report).at("time_stamp"), "24-03-05 04:07:03");
}

TEST(GatheredData, aReportIsStampedWithTheTimeOfItsMaking) {
  const auto before = std::chrono::system_clock::now();
  const GatheredData report;
  EXPECT_GE(report.time_stamp, before);
  EXPECT_LE(report.time_stamp, std::chrono::system_clock::now());
}

TEST(GatheredData, aTextThatIsNotWellFormedYieldsNoTextAtAll) {
  GatheredData report;
  report.username = "Jos\xE9";
  EXPECT_EQ(report.jsonText(), "");
}

}  // namespace
}  // namespace msp
