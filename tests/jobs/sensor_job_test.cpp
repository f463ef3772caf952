#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "jobs/jobs_manager.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

class ReadSensors : public testing::Test {
 protected:
  ReadSensors() { host_.runner().answer("sysctl -n machdep.cpu.brand_string", "Intel(R) Core(TM)"); }
  JobResult run(const std::string& powermetrics) {
    host_.runner().answer("powermetrics -s smc -n1 -i1", powermetrics);
    return JobsManager(host_, http_).readSensors(Job{{"id", "7"}, {"type", "get_sensors"}});
  }
  static JobResult sensors(std::vector<SensorData> list) {
    return {.id = 7, .message = "", .success = 1, .sensors = std::move(list)};
  }

  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
};

const SensorData kCPU{"CPU", "temperature", 48.25, "CPU Package"};
const SensorData kGPU{"GpuApple", "temperature", 41, "GPU Core"};

TEST_F(ReadSensors, eachReadingAboveZeroIsARecord) {
  EXPECT_EQ(run("CPU die temperature: 48.25 C\nGPU die temperature: 41 C"), sensors({kCPU, kGPU}));
  EXPECT_EQ(run("CPU die temperature: 48.25 C"), sensors({kCPU}));
  EXPECT_EQ(run("GPU die temperature: 41 C"), sensors({kGPU}));
  EXPECT_EQ(run("CPU die temperature: -1 C\nGPU die temperature: 41 C"), sensors({kGPU}));
  EXPECT_EQ(run("CPU die temperature: -1 C"), sensors({})) << "not both are zero";
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ReadSensors, withoutReadingsTheJobFails) {
  const JobResult expected{.id = 7, .message = "No temperature sensors detected.", .success = 0};
  EXPECT_EQ(run("CPU die temperature: 0 C"), expected);
  EXPECT_EQ(run(""), expected);
  EXPECT_EQ(log_.messages(), (Lines{"No temperature sensors detected.", "No temperature sensors detected."}));
}

TEST_F(ReadSensors, anOldSystemOnAppleSiliconHasNone) {
  host_.runner().answer("sysctl -n machdep.cpu.brand_string", "Apple M1");
  host_.systemVersion = "11.6";
  const JobResult expected{.id = 7, .message = "No temperature sensors detected.", .success = 0};
  EXPECT_EQ(run(""), expected);
  EXPECT_EQ(log_.messages(), (Lines{"readTemperatures M-series requires macOS 12.0 or later",
                                    "No temperature sensors detected."}));
}

}  // namespace
}  // namespace msp
