#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "scenarios/scenario.h"

namespace msp::test {
namespace {

using namespace std::chrono_literals;

struct MachineReport {
  std::string folder;
  std::string name;  // the computer's, as a host label
  std::string last_sw_update, cpu, os_version, hw_serial_number, hw_model;
  std::int64_t ram;
  std::string os_name, os_build, username, ipv4_address, load_average;
  std::int64_t free_ram, primary_drive_size, primary_drive_free_space;
};

const MachineReport kReports[] = {
    {.folder = "m2-sonoma",
     .name = "Chloés-MacBook-Air",
     .last_sw_update = "24-05-14 22:08:03",
     .cpu = "Apple M2",
     .os_version = "macOS 14.5 23F79",
     .hw_serial_number = "FX7Q2M4L0K",
     .hw_model = "Mac14,2",
     .ram = 17179869184,
     .os_name = "macOS",
     .os_build = "14.5",
     .username = "chloe",
     .ipv4_address = "192.168.68.114",
     .load_average = "2.81, 3.27, 3.01",
     .free_ram = (5120 + 298811) * std::int64_t{16384},
     .primary_drive_size = 482797652 * std::int64_t{1024},
     .primary_drive_free_space = 180442208 * std::int64_t{1024}},
    {.folder = "intel-ventura",
     .name = "Reception-iMac",
     .last_sw_update = "24-08-08 03:15:31",
     .cpu = "Intel(R) Core(TM) i5-8500 CPU @ 3.00GHz",
     .os_version = "macOS 13.6.9 22G830",
     .hw_serial_number = "C02ZQ7FAKE01",
     .hw_model = "iMac19,2",
     .ram = 17179869184,
     .os_name = "macOS",
     .os_build = "13.6.9",
     .username = "itadmin",
     .ipv4_address = "10.20.0.31",
     .load_average = "1.52, 1.61, 1.70",
     .free_ram = (181204 + 1180233) * std::int64_t{4096},
     .primary_drive_size = 488245288 * std::int64_t{1024},
     .primary_drive_free_space = 301224408 * std::int64_t{1024}},
    {.folder = "m4-sequoia",
     .name = "mini-studio-3",
     .last_sw_update = "25-08-21 04:12:09",
     .cpu = "Apple M4",
     .os_version = "macOS 15.6.1 24G90",
     .hw_serial_number = "L9T4W0NDXY",
     .hw_model = "Mac16,10",
     .ram = 25769803776,
     .os_name = "macOS",
     .os_build = "15.6.1",
     .username = "mediaops",
     .ipv4_address = "172.16.40.12",
     .load_average = "0.98, 1.20, 0.77",
     .free_ram = (301224 + 390441) * std::int64_t{16384},
     .primary_drive_size = 239362496 * std::int64_t{1024},
     .primary_drive_free_space = 90112844 * std::int64_t{1024}},
};

double secondsSinceBoot() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return static_cast<double>(time.tv_sec);
}

/// Seconds since 1970; -1 when the text is no time stamp.
std::time_t timeOf(const std::string& stamp) {
  std::tm utc{};
  const char* const rest = strptime(stamp.c_str(), "%y-%m-%d %H:%M:%S", &utc);
  return rest != nullptr && *rest == '\0' ? timegm(&utc) : -1;
}

/// All 26 fields in their order; what the clock says is checked against the clock.
void expectReport(const MachineReport& machine, const Json& report, const std::string& publicAddress,
                  const Json& jobResults, double earliestUptime, std::time_t earliestTime) {
  const Json expected = {
      {"agent_version", "3.3.1"},
      {"job_results", jobResults},
      {"agent_type", "xcode"},
      {"get_jobs", "false"},
      {"primary_drive", "/"},
      {"ipv6_address", ""},
      {"wan_ipv6_address", ""},
      {"hw_manufacturer", "Apple Inc"},
      {"last_sw_update", machine.last_sw_update},
      {"cpu", machine.cpu},
      {"os_version", machine.os_version},
      {"hw_serial_number", machine.hw_serial_number},
      {"hw_model", machine.hw_model},
      {"ram", machine.ram},
      {"os_name", machine.os_name},
      {"os_build", machine.os_build},
      {"name", machine.name},
      {"username", machine.username},
      {"ipv4_address", machine.ipv4_address},
      {"wan_ipv4_address", publicAddress},
      {"uptime", report.value("uptime", Json())},
      {"load_average", machine.load_average},
      {"free_ram", machine.free_ram},
      {"primary_drive_size", machine.primary_drive_size},
      {"primary_drive_free_space", machine.primary_drive_free_space},
      {"time_stamp", report.value("time_stamp", Json())},
  };
  EXPECT_EQ(report.dump(1), expected.dump(1));

  ASSERT_TRUE(report["uptime"].is_number_float());
  EXPECT_GE(report["uptime"].get<double>(), earliestUptime);
  EXPECT_LE(report["uptime"].get<double>(), secondsSinceBoot() + 1);
  ASSERT_TRUE(report["time_stamp"].is_string());
  EXPECT_GE(timeOf(report["time_stamp"]), earliestTime) << report["time_stamp"];
  EXPECT_LE(timeOf(report["time_stamp"]), std::time(nullptr)) << report["time_stamp"];
}

/// The listing of m2-sonoma without the names of two words.
Json expectedProcesses(std::int64_t jobId) {
  Json result = plainResult(jobId, "", 1);
  result["processes"] = {
      process("com.apple.WebKit.WebContent", 612, 21.7, 401224),
      process("WindowServer", 401, 12.3, 202114),
      process("Safari", 1204, 3.1, 120884),
      process("mds_stores", 344, 1.1, 40112),
      process("Finder", 588, 0.4, 90221),
      process("launchd", 1, 0.2, 16224),
      process("Dock", 600, 0.0, 30112),
      process("zsh", 612204, 0.0, 2880),
      process("bluetoothd", 377, 0.0, 8812),
  };
  return result;
}

std::vector<std::string> keysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object.items()) keys.push_back(key);
  std::sort(keys.begin(), keys.end());
  return keys;
}

std::chrono::duration<double> between(const lab::Received& first, const lab::Received& second) {
  return second.arrival - first.arrival;
}

class ANewAgent : public Scenario {
 protected:
  const double uptimeBefore_ = secondsSinceBoot();
  const std::time_t timeBefore_ = std::time(nullptr);
};

TEST_F(ANewAgent, registersReportsItsMacAndAnswersItsFirstJob) {
  const MachineReport& machine = kReports[0];
  Lab lab(machine.folder);
  const auto job = lab.server().queueJob("get_processes");
  lab.server().setCheckInInterval(3);
  lab.server().holdAnswers("create");
  lab.startAgent();
  lab.expectLog({"Starting up: version 3.3.1"});
  EXPECT_EQ(lab.files(), (std::vector<std::string>{"default_api.txt", "logfile.log", "msp-agent"}));
  lab.server().releaseAnswers("create");

  const auto first = lab.checkIn(1);
  const auto requests = lab.server().received();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(nlohmann::json::parse(requests[0]->body),
            (nlohmann::json{
                {"api_action", "msp"}, {"api_version", 1}, {"task", "create"}, {"name", machine.name}}));
  EXPECT_EQ(nlohmann::json::parse(requests[1]->body),
            (nlohmann::json{{"api_action", "msp"}, {"api_version", 1}, {"task", "test"}}));
  EXPECT_EQ(requests[2], first);
  EXPECT_LT(between(*requests[1], *first), 15s) << "not at the tick that follows the test";

  const auto config = nlohmann::json::parse(lab.file("config.ini"));
  const std::string uuid = config.at("api_uuid");
  EXPECT_EQ(uuid.size(), 36U);
  EXPECT_EQ(config, (nlohmann::json{{"api_url", lab.server().url()},
                                    {"api_uuid", uuid},
                                    {"agent_id", "1"},
                                    {"agent_version", "3.3.1"}}));
  EXPECT_EQ(lab.modeOf("config.ini"), 0600);
  EXPECT_EQ(lab.modeOf("logfile.log"), 0600);
  EXPECT_EQ(lab.files(),
            (std::vector<std::string>{"config.ini", "default_api.txt", "logfile.log", "msp-agent"}));

  EXPECT_EQ(keysOf(first->message.body),
            (std::vector<std::string>{"api_action", "api_version", "data", "task", "uuid"}));
  EXPECT_EQ(first->message.problem, "");
  EXPECT_EQ(first->message.body["uuid"], uuid);
  EXPECT_EQ(first->path, "/");
  EXPECT_EQ(first->header("Content-Type"), "application/json");
  EXPECT_EQ(first->header("Expect"), std::nullopt);
  expectReport(machine, first->message.report, "", Json::array(), uptimeBefore_, timeBefore_);

  const auto second = lab.checkIn(2);
  EXPECT_GT(between(*first, *second), 25s) << "the tick was armed before the answer arrived";
  EXPECT_LT(between(*first, *second), 60s);
  expectReport(machine, second->message.report, "203.0.113.7", Json::array({expectedProcesses(job)}),
               uptimeBefore_, timeBefore_);

  lab.server().setCheckInInterval(0.25);
  const auto third = lab.checkIn(3);
  EXPECT_GT(between(*second, *third), 1s) << "the interval of 3 seconds was not kept";
  EXPECT_LT(between(*second, *third), 25s);
  expectReport(machine, third->message.report, "203.0.113.7", Json::array(), uptimeBefore_, timeBefore_);
  EXPECT_LT(between(*lab.checkIn(4), *lab.checkIn(8)), 25s);

  for (const auto& request : lab.server().received()) EXPECT_EQ(request->peerPort, first->peerPort);
  EXPECT_EQ(lab.server().connections(), 1U);
  EXPECT_EQ(lab.log(),
            (std::vector<std::string>{"Starting up: version 3.3.1", "Tested & stored new config."}));
  EXPECT_EQ(lab.output(), std::vector<std::string>{});
}

TEST_F(ANewAgent, reportsEveryMac) {
  std::vector<std::unique_ptr<Lab>> labs;
  for (const auto& machine : kReports) {
    labs.push_back(std::make_unique<Lab>(machine.folder));
    labs.back()->startAgent();
  }
  for (std::size_t i = 0; i < labs.size(); ++i) {
    SCOPED_TRACE(kReports[i].folder);
    expectReport(kReports[i], labs[i]->checkIn(1)->message.report, "", Json::array(), uptimeBefore_,
                 timeBefore_);
    EXPECT_EQ(labs[i]->server().received("create").at(0)->message.body["name"], kReports[i].name);
  }
}

}  // namespace
}  // namespace msp::test
