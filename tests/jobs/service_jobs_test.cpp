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

class ServiceJobs : public testing::Test {
 protected:
  static Job job(const std::string& mode) {
    return Job{
        {"id", "7"}, {"type", mode + "_service"}, {"arguments", R"({"service_name": "org.example.agent"})"}};
  }

  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
  JobsManager jobs_{host_, http_};
};

TEST_F(ServiceJobs, theListingIsAnswered) {
  host_.runner().answer("launchctl list", "PID\tStatus\tLabel\n-\t0\tcom.example.agent\n9\t-9\tb");
  const JobResult expected{
      .id = 7,
      .message = "",
      .success = 1,
      .services = {{{"com.example.agent", "Running", "com.example.agent"}, {"b", "Stopped", "b"}}}};
  EXPECT_EQ(jobs_.listServices(Job{{"id", "7"}, {"type", "get_services"}}), expected);
  EXPECT_EQ(host_.runner().commandLines(), Lines{"launchctl list"});
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ServiceJobs, anEmptyListingFailsWithoutAList) {
  const JobResult expected{.id = 7, .message = "No services detected.", .success = 0};
  EXPECT_EQ(jobs_.listServices(Job{{"id", "7"}, {"type", "get_services"}}), expected);
  EXPECT_EQ(log_.messages(), Lines{"No services detected."});
}

TEST_F(ServiceJobs, eachModeSaysWhatItDid) {
  host_.files["/Library/LaunchDaemons/org.example.agent.plist"] = "";
  struct Case {
    std::string mode, message, command;
  };
  const Case cases[] = {
      {"start", "Service org.example.agent started.",
       "launchctl bootstrap system /Library/LaunchDaemons/org.example.agent.plist"},
      {"stop", "Service org.example.agent stopped.", "launchctl bootout system/org.example.agent"},
      {"restart", "Service org.example.agent restarted.", "launchctl kickstart -k system/org.example.agent"},
  };
  for (const Case& row : cases) {
    host_.runner().forgetCommandLines();
    const JobResult expected{.id = 7, .message = row.message, .success = 1};
    EXPECT_EQ(jobs_.switchService(job(row.mode), row.mode), expected);
    EXPECT_EQ(host_.runner().commandLines(), Lines{row.command});
  }
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ServiceJobs, eachModeSaysWhyItFailed) {
  host_.runner().answer("launchctl bootout system/org.example.agent", "busy");
  host_.runner().answer("launchctl kickstart -k system/org.example.agent", "OK\nnot at all");
  struct Case {
    std::string mode, message, line;
  };
  const Case cases[] = {
      {"start", "Failed to start service org.example.agent: Service file not found.",
       "Failed to start service org.example.agent: Service file not found.: start_service: "
       R"(["service_name": "org.example.agent"])"},
      {"stop", "Failed to stop service org.example.agent: busy.",
       "Failed to stop service org.example.agent: busy.: stop_service: "
       R"(["service_name": "org.example.agent"])"},
      {"restart", "Failed to restart service org.example.agent: OK\nnot at all.",
       "Failed to restart service org.example.agent: OK\nnot at all.: restart_service: "
       R"(["service_name": "org.example.agent"])"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    const JobResult expected{.id = 7, .message = row.message, .success = 0};
    EXPECT_EQ(jobs_.switchService(job(row.mode), row.mode), expected);
    EXPECT_EQ(log.messages(), Lines{row.line});
  }
}

TEST_F(ServiceJobs, aToolThatPrintsOKHasSucceeded) {
  host_.runner().answer("launchctl bootout system/org.example.agent", "OK");
  EXPECT_EQ(jobs_.switchService(job("stop"), "stop").success, 1);
}

TEST_F(ServiceJobs, withoutANameNothingRuns) {
  struct Case {
    std::string name;
    Job job;
    std::string line;
  };
  const Case cases[] = {
      {"no arguments", Job{{"id", "7"}, {"type", "start_service"}},
       "Switch Services Error: Invalid commands: start_service"},
      {"an empty object", Job{{"id", "7"}, {"type", "start_service"}, {"arguments", "{}"}},
       "Switch Services Error: Invalid commands: start_service: [:]"},
      {"a number", Job{{"id", "7"}, {"type", "start_service"}, {"arguments", R"({"service_name": 5})"}},
       R"(Switch Services Error: Invalid commands: start_service: ["service_name": 5])"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    const JobResult expected{.id = 7, .message = "Switch Services Error: Invalid commands", .success = 0};
    EXPECT_EQ(jobs_.switchService(row.job, "start"), expected) << row.name;
    EXPECT_EQ(log.messages(), Lines{row.line}) << row.name;
  }
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
}

TEST_F(ServiceJobs, theNameIsLookedForBeforeTheMode) {
  const JobResult expected{.id = 7, .message = "Switch Services Error: Invalid commands", .success = 0};
  EXPECT_EQ(jobs_.switchService(Job{{"id", "7"}, {"type", "x"}}, "pause"), expected);
  EXPECT_EQ(log_.messages(), Lines{"Switch Services Error: Invalid commands: x"});
}

TEST_F(ServiceJobs, anUnknownModeIsLoggedTwice) {
  const JobResult expected{.id = 7, .message = "Switch Services Error: Unknown command", .success = 0};
  EXPECT_EQ(jobs_.switchService(job("pause"), "pause"), expected);
  const std::string line =
      R"(Switch Services Error: Unknown command: pause_service: ["service_name": "org.example.agent"])";
  EXPECT_EQ(log_.messages(), (Lines{line, line}));
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
}

}  // namespace
}  // namespace msp
