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
};

TEST_F(JobDispatcherTest, handsAJobToItsHandler) {
  host.runner().answer("ps -ax -c -r -o pid,%cpu,rss,comm", "  1 0.5 18044 launchd\n");
  const auto result = runJob(jobs, job(R"({"id":"5","type":"get_processes"})"));
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, (JobResult{.id = 5,
                                .message = "",
                                .success = 1,
                                .processes = {{ProcessData{"launchd", 1, 0.5, 18044, "", "launchd"}}}}));
}

TEST_F(JobDispatcherTest, skipsAJobWithoutAUsableType) {
  for (const char* text : {R"({"id":"6"})", R"({"id":"6","type":7})", R"({"type":null})", "{}"}) {
    EXPECT_EQ(runJob(jobs, job(text)), std::nullopt) << text;
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
    EXPECT_EQ(runJob(jobs, job(c.job)), c.result) << c.job;
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
  EXPECT_EQ(runJob(JobsManager(broken, http), listing), (JobResult{3, "Error - unable to finish job", 0}));
  broken.fail = [] { throw 42; };
  EXPECT_EQ(runJob(JobsManager(broken, http), listing), (JobResult{3, "Error - unable to finish job", 0}));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Unable to finish job, no runner: get_processes",
                                                      "Unable to finish job, unknown error: get_processes"}));
}

}  // namespace
}  // namespace msp
