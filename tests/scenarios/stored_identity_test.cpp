#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "scenarios/scenario.h"
#include "server/protocol.h"

namespace msp::test {
namespace {

using StoredIdentity = Scenario;

TEST_F(StoredIdentity, isUsedAtOnceAndItsJobsAreAnsweredUntilTheServerHasThem) {
  Lab lab;
  lab.storeIdentity("3.3.0");
  auto& server = lab.server();
  const auto unknown = server.queueJob("reboot_now", {{"command", "ls -l"}, {"n", 5}});
  const auto listing = server.queueJob("get_processes");
  server.queueRawJob({{"id", "30"}});
  server.queueRawJob({{"id", "31"}, {"type", 7}});
  server.queueRawJob({{"id", 32}, {"type", "Get_Processes"}});
  const auto last = server.queueJob("");
  server.setCheckInInterval(0.2);
  lab.startAgent();

  const auto first = lab.checkIn(1);
  EXPECT_EQ(first->number, 1U) << "something was sent before the first check-in";
  EXPECT_EQ(first->message.body["uuid"], lab.identity()["api_uuid"]);
  EXPECT_EQ(resultsIn(*first), Json::array());
  EXPECT_EQ(nlohmann::json::parse(lab.file("config.ini")), nlohmann::json(lab.identity("3.3.1")));
  EXPECT_EQ(lab.modeOf("config.ini"), 0600);

  // From here on what the server says to each check-in, from the second.
  const std::vector<lab::ServerAnswer> failures = {
      {500, R"({"success": 1})"},
      {.body = R"({"success": 1})", .cutOff = true},
      {200, R"({"success": 0, "jobs": [{"id": "40", "type": "never_run"}]})"},
      {200, R"({"jobs": []})"},
  };
  server.answerWith("checkin", [&](const lab::Received& received) {
    const auto index = received.number - 2;
    return index < failures.size() ? failures[index] : server.normalAnswer(received);
  });

  for (std::size_t number = 2; number <= failures.size() + 2; ++number) {
    SCOPED_TRACE(number);
    const auto results = resultsIn(*lab.checkIn(number));
    ASSERT_EQ(results.size(), 4U);
    EXPECT_EQ(results[0], plainResult(unknown, "Unknown task reboot_now", 0));
    EXPECT_EQ(results[1]["id"], listing);
    EXPECT_EQ(results[1]["success"], 1);
    EXPECT_EQ(results[1]["processes"].size(), 9U);
    EXPECT_EQ(results[2], plainResult(0, "Unknown task Get_Processes", 0));
    EXPECT_EQ(results[3], plainResult(last, "Unknown task ", 0));
  }
  EXPECT_EQ(resultsIn(*lab.checkIn(failures.size() + 3)), Json::array());
  EXPECT_EQ(server.received().size(), server.received("checkin").size());

  std::vector<std::string> log = {"Starting up: version 3.3.1",
                                  R"(Unknown task: reboot_now: ["command": "ls -l", "n": 5])",
                                  "Unknown task: Get_Processes",
                                  "Unknown task: ",
                                  "POST failed: unknown error",
                                  "Task: checkin",
                                  "POST failed: transfer closed with 1 bytes remaining to read",
                                  "Task: checkin"};
  lab.expectLog(log);
  EXPECT_EQ(lab.output(), std::vector<std::string>{});

  // One job that is no object spoils the whole list of its answer.
  server.queueRawJobs({lab::makeJob(50, "spoilt_by_the_next", nullptr), 5});
  lab.checkIn(lab.checkIns() + 3);
  server.queueRawJobs({nullptr, lab::makeJob(51, "spoilt_by_the_one_before", nullptr)});
  lab.checkIn(lab.checkIns() + 3);
  server.queueJob("good");
  log.emplace_back("Unknown task: good");
  lab.expectLog(log);
}

}  // namespace
}  // namespace msp::test
