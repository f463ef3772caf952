#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scenarios/scenario.h"
#include "server/announcements.h"

namespace msp::test {
namespace {

constexpr const char* kProcessListing = "ps -ax -c -r -o pid,%cpu,rss,comm";

/// All that a check-in runs.
constexpr const char* kReportCommands[] = {
    "sysctl -n machdep.cpu.brand_string",
    "sw_vers",
    "system_profiler SPHardwareDataType",
    "sysctl -n hw.memsize",
    "who",
    "ipconfig getifaddr en0",
    "ipconfig getifaddr en1",
    "uptime",
    "vm_stat",
    "df -k /",
};

/// The fields of a report that come from tools.
Json toolFields(const lab::Received& checkIn) {
  const Json& report = checkIn.message.report;
  Json fields = Json::object();
  for (const auto* key :
       {"cpu", "os_version", "os_name", "os_build", "hw_serial_number", "hw_model", "ram", "username",
        "ipv4_address", "load_average", "free_ram", "primary_drive_size", "primary_drive_free_space"}) {
    fields[key] = report.value(key, Json());
  }
  return fields;
}

Json nothingKnown() {
  return {{"cpu", ""},
          {"os_version", ""},
          {"os_name", ""},
          {"os_build", ""},
          {"hw_serial_number", ""},
          {"hw_model", ""},
          {"ram", 0},
          {"username", ""},
          {"ipv4_address", ""},
          {"load_average", ""},
          {"free_ram", 0},
          {"primary_drive_size", 0},
          {"primary_drive_free_space", 0}};
}

Json theMac() {
  return {{"cpu", "Apple M2"},
          {"os_version", "macOS 14.5 23F79"},
          {"os_name", "macOS"},
          {"os_build", "14.5"},
          {"hw_serial_number", "FX7Q2M4L0K"},
          {"hw_model", "Mac14,2"},
          {"ram", 17179869184},
          {"username", "chloe"},
          {"ipv4_address", "192.168.68.114"},
          {"load_average", "2.81, 3.27, 3.01"},
          {"free_ram", 4979605504},
          {"primary_drive_size", 494384795648},
          {"primary_drive_free_space", 184772820992}};
}

/// Lines of words without end, as a tool that lost its mind prints them.
std::string tenMegabytes() {
  const std::string line = "0123456789 abcdef ghi";
  std::string text = line;
  while (text.size() < 10'000'000) text += "\n" + line;
  return text;
}

/// EXPECT_EQ would print megabytes.
testing::AssertionResult sameJson(const char* /*actualText*/, const char* /*expectedText*/,
                                  const Json& actual, const Json& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << lab::printable(actual.dump(), 2000) << "\nis not\n"
                                     << lab::printable(expected.dump(), 2000);
}

/// The simulated Mac made worse, and what becomes of it.
struct Case {
  std::string name;
  std::function<void(lab::SimulatedMac&)> spoil;
  std::function<void(lab::SimulatedMac&)> repair;
  Json first;                    // what the tools' fields hold in the first report
  Json second;                   // and in the second, after the repair
  std::vector<std::string> log;  // without what the job adds
  Json result;                   // of a process listing
};

Case everyTool(std::string name, const lab::Answer& answer, Json first, Json second,
               std::vector<std::string> log, Json result) {
  return {std::move(name),
          [answer](lab::SimulatedMac& mac) {
            for (const auto* command : kReportCommands) mac.answer(command, answer);
            mac.answer(kProcessListing, answer);
          },
          [](lab::SimulatedMac& mac) {
            for (const auto* command : kReportCommands) mac.forgetAnswer(command);
          },
          std::move(first),
          std::move(second),
          std::move(log),
          std::move(result)};
}

Case loginShell(std::string name, const std::string& profileLine, Json fields, std::vector<std::string> log,
                Json result) {
  return {std::move(name),
          [profileLine](lab::SimulatedMac& mac) {
            mac.answer(kProcessListing, {"588 0.4 90221 Finder\n"});
            std::ofstream(mac.home() / ".bash_profile", std::ios::app) << profileLine << "\n";
          },
          [](lab::SimulatedMac&) {},
          fields,
          fields,
          std::move(log),
          std::move(result)};
}

std::vector<std::string> forEachTool(const std::string& before, const std::vector<std::string>& tools,
                                     const std::string& after) {
  std::vector<std::string> messages;
  messages.reserve(tools.size());
  for (const auto& tool : tools) messages.push_back(before + tool + after);
  return messages;
}

std::vector<Case> cases() {
  const std::vector<std::string> runs = {"sysctl",   "sw_vers",  "system_profiler", "sysctl",  "who",
                                         "ipconfig", "ipconfig", "uptime",          "vm_stat", "df"};
  const Json unlisted = plainResult(1, "Error - unable to list processes.", 0);
  const Json emptyList = merged(plainResult(1, "", 1), {{"processes", Json::array()}});
  const std::string garbage = "\x07 gar bage 12x 99999999999999999999 ?!";
  std::string large = tenMegabytes(), largeInOneLine = large;
  std::replace(largeInOneLine.begin(), largeInOneLine.end(), '\n', ' ');
  return {
      everyTool("every tool prints nothing", {}, nothingKnown(), theMac(), {}, unlisted),
      everyTool("every tool prints blanks and newlines", {" \t\r\n\n"}, nothingKnown(), theMac(), {},
                emptyList),
      everyTool("every tool prints malformed UTF-8", {"macOS \xC3\x28\n"}, nothingKnown(), theMac(), {},
                unlisted),
      everyTool("every tool prints nothing and fails", {"", "out of order", 3}, nothingKnown(), theMac(),
                forEachTool("Error returned from ", runs, ": out of order"), emptyList),
      everyTool("every tool complains in malformed UTF-8", {"", "\xC3\x28", 3}, nothingKnown(), theMac(),
                forEachTool("Error returned from ", runs, ": unknown"), unlisted),
      everyTool(
          "every tool prints garbage", {garbage + "\n"},
          merged(nothingKnown(), {{"cpu", garbage},
                                  {"os_version", garbage},
                                  {"ipv4_address", garbage},
                                  {"load_average", "12x, 99999999999999999999, ?!"}}),
          merged(theMac(), {{"cpu", garbage}, {"os_version", garbage}, {"os_name", ""}, {"os_build", ""}}),
          {}, emptyList),
      everyTool("every tool prints ten megabytes", {large + "\n"},
                merged(nothingKnown(), {{"cpu", large},
                                        {"os_version", largeInOneLine},
                                        {"ipv4_address", large},
                                        {"load_average", "ghi\n0123456789, abcdef, ghi"}}),
                merged(theMac(),
                       {{"cpu", large}, {"os_version", largeInOneLine}, {"os_name", ""}, {"os_build", ""}}),
                {}, emptyList),
      loginShell(
          "the login shell complains", "echo 'no such terminal' >&2", theMac(), {},
          merged(plainResult(1, "", 1), {{"processes", Json::array({process("Finder", 588, 0.4, 90221)})}})),
      loginShell("the login shell ends before it has looked", "exit 3", nothingKnown(),
                 std::vector<std::string>(9, "Error returned from /bin/bash: "), unlisted),
  };
}

using BadTools = Scenario;

TEST_F(BadTools, leaveWhatIsNotKnownAsItIsUntilTheyAnswer) {
  std::vector<std::unique_ptr<Lab>> labs;
  std::vector<std::size_t> repaired;  // how many check-ins there were
  const auto rows = cases();
  for (const Case& row : rows) {
    labs.push_back(std::make_unique<Lab>());
    Lab& lab = *labs.back();
    row.spoil(lab.mac());
    lab.storeIdentity();
    lab.server().queueJob("get_processes");
    lab.server().setCheckInInterval(10);
    lab.startAgent();
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    Lab& lab = *labs[i];
    EXPECT_PRED_FORMAT2(sameJson, toolFields(*lab.checkIn(1)), rows[i].first);
    rows[i].repair(lab.mac());
    repaired.push_back(lab.checkIns());
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    Lab& lab = *labs[i];
    // The report under way at the repair, and one that may be waiting behind it, can be of before.
    std::size_t number = 2;
    while (number < repaired[i] + 3 && toolFields(*lab.checkIn(number)) != rows[i].second) ++number;
    EXPECT_PRED_FORMAT2(sameJson, toolFields(*lab.checkIn(number)), rows[i].second);
    EXPECT_EQ(lab.result(1), rows[i].result);
    std::vector<std::string> log = {"Starting up: version 3.3.1"};
    log.insert(log.end(), rows[i].log.begin(), rows[i].log.end());
    if (rows[i].result["success"] == 0) log.emplace_back("Unable to list processes: get_processes");
    lab.expectLog(log);
  }
}

/// Where a login shell's noise is taken for a part of the tool's path.
TEST_F(BadTools, areNotFoundThroughALoginShellThatGreets) {
  Lab lab;
  std::ofstream(lab.mac().home() / ".bash_profile", std::ios::app) << "echo Welcome\n";
  lab.storeIdentity();
  lab.startAgent();
  std::vector<std::string> log = {"Starting up: version 3.3.1"};
  for (const auto* tool : {"sysctl", "sw_vers", "system_profiler", "sysctl", "who", "ipconfig", "ipconfig",
                           "uptime", "vm_stat", "df"}) {
    log.push_back("No path for command Welcome\n" + lab.mac().tool(tool).string());
  }
  EXPECT_EQ(toolFields(*lab.checkIn(1)), nothingKnown());
  lab.expectLog(log);
}

void release(Lab& lab, std::string_view commandLine, std::string_view output) {
  const auto tool = lab.waitForTool(commandLine);
  lab.mac().release(commandLine, output);
}

TEST_F(BadTools, thatHangHoldUpTheirOwnBatchOnly) {
  Lab lab;
  auto& server = lab.server();
  lab.mac().hold(kProcessListing);
  lab.storeIdentity();
  const auto before = server.queueJob("before"), held = server.queueJob("get_processes"),
             after = server.queueJob("after");
  server.setCheckInInterval(0.2);
  lab.succeedOnlyWithJobs();
  lab.startAgent();
  lab.checkIn(2);

  const auto later = server.queueJob("later");
  EXPECT_EQ(lab.result(later), plainResult(later, "Unknown task later", 0));
  EXPECT_TRUE(server.results(after).empty());
  release(lab, kProcessListing, "  PID  %CPU    RSS COMM\n    1   0.5  16224 launchd\n");
  EXPECT_EQ(lab.result(held), merged(plainResult(held, "", 1),
                                     {{"processes", Json::array({process("launchd", 1, 0.5, 16224)})}}));
  EXPECT_EQ(lab.result(before), plainResult(before, "Unknown task before", 0));
  EXPECT_EQ(lab.result(after), plainResult(after, "Unknown task after", 0));
  EXPECT_EQ(server.results(before).size(), server.results(after).size()) << "they came one by one";

  // A tool of the report holds up the check-ins, and they go on when it ends.
  lab.mac().hold("uptime");
  release(lab, "uptime", "14:02  up 11 days,  5:31, 1 user, load averages: 9.01 9.02 9.03\n");
  std::size_t number = lab.checkIns();
  while (lab.checkIn(number)->message.report["load_average"] != "9.01, 9.02, 9.03") ++number;
  EXPECT_EQ(lab.checkIn(number + 1)->message.report["load_average"], "2.81, 3.27, 3.01");
}

}  // namespace
}  // namespace msp::test
