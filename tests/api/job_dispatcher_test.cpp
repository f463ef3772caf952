#include "api/job_dispatcher.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <stdexcept>

#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"

namespace msp {
namespace {

Json job(const char* text) { return JSONUtilities::jsonToDictionary(text); }

class JobDispatcherTest : public testing::Test {
 protected:
  const test::CapturedLog log;
  test::FakeHost host;
  test::FakeHttpClient http;
  JobsManager jobs{host, http};
  std::vector<JobResult> later;

  std::optional<JobResult> run(const Json& oneJob) { return run(jobs, oneJob); }
  std::optional<JobResult> run(const JobsManager& manager, const Json& oneJob) {
    return runJob(manager, oneJob, [this](JobResult result) { later.push_back(std::move(result)); });
  }
};

TEST_F(JobDispatcherTest, everyTypeHasItsHandler) {
  // Told apart by what each handler answers, runs and logs without arguments, on a machine whose tools are
  // silent.
  struct Case {
    const char* type;
    JobResult result;
    std::vector<std::string> commands;
    std::vector<std::string> logged;
  };
  const std::string unparsed = "Error - unable to parse command to execute";
  const Case cases[] = {
      {"execute_command",
       {9, unparsed, 0},
       {},
       {"Unable to parse args for execute command: execute_command"}},
      {"get_processes",
       {9, "Error - unable to list processes.", 0},
       {"streaming ps -ax -c -r -o pid,%cpu,rss,comm"},
       {"Unable to list processes: get_processes"}},
      {"kill_process", {9, unparsed, 0}, {}, {"Unable to parse args for kill command: kill_process"}},
      {"restart", {9, "Restarting", 1}, {"shutdown -r"}, {}},
      {"create_local_user_account",
       {9, unparsed, 0},
       {},
       {"Unable to parse args for createNewUser command: create_local_user_account"}},
      {"get_storage_devices", {9, "No storage devices detected.", 0}, {"streaming diskutil list"}, {}},
      {"get_network_interfaces", {9, "No network interfaces detected.", 0}, {}, {}},
      {"get_services", {9, "No services detected.", 0}, {"launchctl list"}, {"No services detected."}},
      {"restart_service",
       {9, "Switch Services Error: Invalid commands", 0},
       {},
       {"Switch Services Error: Invalid commands: restart_service"}},
      {"start_service",
       {9, "Switch Services Error: Invalid commands", 0},
       {},
       {"Switch Services Error: Invalid commands: start_service"}},
      {"stop_service",
       {9, "Switch Services Error: Invalid commands", 0},
       {},
       {"Switch Services Error: Invalid commands: stop_service"}},
      {"get_sensors",
       {9, "No temperature sensors detected.", 0},
       {"sysctl -n machdep.cpu.brand_string"},
       {"No temperature sensors detected."}},
      {"get_local_users",
       {9, "No users or groups found.", 0},
       {"id -G", "id -Gn", "streaming dscl . -readall Users UniqueID RecordName RealName PrimaryGroupID"},
       {"Skipping home directory clean-up: no users listed", "No users or groups found."}},
      {"modify_local_user_account",
       {9, "Error - unable to parse modify_local_user_account", 0},
       {},
       {"Unable to parse args for modify_local_user_account: modify_local_user_account"}},
  };
  for (const Case& row : cases) {
    host.runner().forgetCommandLines();
    const test::CapturedLog own;
    EXPECT_EQ(run(Json{{"id", "9"}, {"type", row.type}}), row.result) << row.type;
    auto commands = host.runner().commandLines();
    // The time of the restart is left out.
    for (std::string& line : commands)
      if (line.starts_with("shutdown -r ")) line.resize(line.rfind(' '));
    EXPECT_EQ(commands, row.commands) << row.type;
    EXPECT_EQ(own.messages(), row.logged) << row.type;
  }
  EXPECT_TRUE(later.empty());
  EXPECT_TRUE(http.downloads().empty());
}

TEST_F(JobDispatcherTest, eachServiceTypeHasItsMode) {
  host.files["/Library/LaunchDaemons/a.plist"] = "";
  const std::pair<const char*, const char*> cases[] = {
      {"start_service", "Service a started."},
      {"stop_service", "Service a stopped."},
      {"restart_service", "Service a restarted."},
  };
  for (const auto& [type, message] : cases) {
    EXPECT_EQ(run(Json{{"id", "9"}, {"type", type}, {"arguments", R"({"service_name": "a"})"}}),
              (JobResult{9, message, 1}));
  }
}

TEST_F(JobDispatcherTest, aDownloadsResultComesLater) {
  const Json download{{"id", "9"},
                      {"type", "download_file_from_url"},
                      {"arguments", R"({"url": "http://127.0.0.1/a", "file_name": "/nowhere/a"})"}};
  EXPECT_EQ(run(download), std::nullopt);
  ASSERT_EQ(http.downloads().size(), 1U);
  EXPECT_TRUE(later.empty());
  http.completeDownload(0, {std::nullopt, "no route"});
  EXPECT_EQ(later, (std::vector<JobResult>{{9, "Download Error: no route", 0}}));
}

TEST_F(JobDispatcherTest, aDownloadThatCannotStartAnswersAtOnceByTheSameWay) {
  EXPECT_EQ(run(Json{{"id", "9"}, {"type", "download_file_from_url"}}), std::nullopt);
  EXPECT_EQ(later, (std::vector<JobResult>{{9, "Download Error: Invalid commands", 0}}));
}

TEST_F(JobDispatcherTest, handsAJobToItsHandler) {
  host.runner().answer("ps -ax -c -r -o pid,%cpu,rss,comm", "  1 0.5 18044 launchd\n");
  const auto result = run(job(R"({"id":"5","type":"get_processes"})"));
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, (JobResult{.id = 5,
                                .message = "",
                                .success = 1,
                                .processes = {{ProcessData{"launchd", 1, 0.5, 18044, "", "launchd"}}}}));
}

TEST_F(JobDispatcherTest, skipsAJobWithoutAUsableType) {
  for (const char* text : {R"({"id":"6"})", R"({"id":"6","type":7})", R"({"type":null})", "{}"}) {
    EXPECT_EQ(run(job(text)), std::nullopt) << text;
  }
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(JobDispatcherTest, answersAnUnknownType) {
  struct Case {
    const char* job;
    JobResult result;
    std::string logged;
  };
  const Case cases[] = {
      {R"({"id":"5","type":"reboot_now"})", {5, "Unknown task reboot_now", 0}, "Unknown task: reboot_now"},
      {R"({"id":5,"type":"reboot_now"})", {0, "Unknown task reboot_now", 0}, "Unknown task: reboot_now"},
      {R"({"id":"8","type":"Get_Processes"})",
       {8, "Unknown task Get_Processes", 0},
       "Unknown task: Get_Processes"},
      {R"({"id":"9","type":""})", {9, "Unknown task ", 0}, "Unknown task: "},
      {R"({"id":"9","type":"x","arguments":"{\"a\":1}"})",
       {9, "Unknown task x", 0},
       R"(Unknown task: x: ["a": 1])"},
  };
  for (const Case& c : cases) {
    const test::CapturedLog own;
    EXPECT_EQ(run(job(c.job)), c.result) << c.job;
    EXPECT_EQ(own.messages(), std::vector<std::string>{c.logged}) << c.job;
  }
}

TEST_F(JobDispatcherTest, losesOneResultToAHandlerThatThrows) {
  class BrokenHost : public test::FakeHost {
   public:
    std::function<void()> fail;
    [[nodiscard]] std::unique_ptr<TaskRunner> makeTaskRunner() const override {
      fail();
      return nullptr;
    }
  };
  BrokenHost broken;
  const Json listing = job(R"({"id":"3","type":"get_processes"})");
  broken.fail = [] { throw std::runtime_error("no runner"); };
  EXPECT_EQ(run(JobsManager(broken, http), listing), (JobResult{3, "Error - unable to finish job", 0}));
  broken.fail = [] { throw 42; };
  EXPECT_EQ(run(JobsManager(broken, http), listing), (JobResult{3, "Error - unable to finish job", 0}));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Unable to finish job, no runner: get_processes",
                                                      "Unable to finish job, unknown error: get_processes"}));
}

}  // namespace
}  // namespace msp
