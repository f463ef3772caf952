#include "agent/msp_agent.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/fake_main_queue.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

constexpr char kStored[] =
    R"({"api_url":"http://127.0.0.1/api","api_uuid":"4F2A","agent_id":"17","agent_version":"3.3.1"})";

class MSPAgentTest : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) const {
    std::ofstream(directory.file(name)) << content;
  }
  void start() {
    agent.emplace(mainQueue, logger, directory.path(), host, http,
                  [](const std::string&, const std::function<void()>& work) {
                    work();
                    return true;
                  });
  }
  /// The numbers of the requests to the agent's server, in order; the others look up the public address.
  [[nodiscard]] std::vector<std::size_t> posts() const {
    std::vector<std::size_t> numbers;
    const auto requests = http.requests();
    for (std::size_t i = 0; i < requests.size(); ++i) {
      if (requests[i].method == "POST") numbers.push_back(i);
    }
    return numbers;
  }
  /// Check-ins are sent from a background thread. `otherPosts` were sent before the first of them.
  [[nodiscard]] bool waitForCheckIns(std::size_t count, std::size_t otherPosts = 0) const {
    return http.waitForRequests("POST", otherPosts + count);
  }
  [[nodiscard]] Json report(std::size_t request) const {
    const Json body = JSONUtilities::jsonToDictionary(http.requests().at(request).body);
    return JSONUtilities::jsonToDictionary(stringValue(body, "data").value_or(""));
  }

  const test::CapturedLog log;
  test::TemporaryDirectory directory;
  test::FakeMainQueue mainQueue;
  test::FakeHost host;
  test::FakeHttpClient http;
  Logger logger{directory.path()};
  std::optional<MSPAgent> agent;
};

TEST_F(MSPAgentTest, checksInAtOnceWithAStoredIdentity) {
  write("config.ini", kStored);
  start();
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Starting up: version 3.3.1"});
  EXPECT_EQ(mainQueue.delays(), std::vector<double>{30.0});
  EXPECT_EQ(agent->checkInInterval(), 30.0);
  EXPECT_EQ(mainQueue.runs(), 1);
  ASSERT_TRUE(waitForCheckIns(1));
  EXPECT_EQ(stringValue(report(posts().at(0)), "agent_version"), "3.3.1");
}

TEST_F(MSPAgentTest, armsTheNextTickBeforeACycle) {
  write("config.ini", kStored);
  start();
  ASSERT_TRUE(waitForCheckIns(1));
  mainQueue.fire();
  EXPECT_EQ(mainQueue.delays(), (std::vector<double>{30.0, 30.0}));
  EXPECT_EQ(mainQueue.waiting(), 1U);
  ASSERT_TRUE(waitForCheckIns(2));
}

TEST_F(MSPAgentTest, waitsWithoutPostingWhenThereIsNoServerAddress) {
  start();
  for (int i = 0; i < 5; ++i) mainQueue.fire();
  EXPECT_EQ(mainQueue.delays(), std::vector<double>(6, 1.0));
  EXPECT_TRUE(http.requests().empty());
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Starting up: version 3.3.1"});
}

TEST_F(MSPAgentTest, checksInAtTheWaitingTickAfterItsRegistration) {
  write("default_api.txt", "http://127.0.0.1/api");
  start();
  mainQueue.fire();
  ASSERT_EQ(http.requests().size(), 1U);
  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":"17"})");
  mainQueue.fire();
  http.answer(1, 200, R"({"test_success":1})");
  EXPECT_EQ(http.requests().size(), 2U);
  mainQueue.fire();
  EXPECT_EQ(mainQueue.delays(), (std::vector<double>{1.0, 1.0, 1.0, 30.0}));
  ASSERT_TRUE(waitForCheckIns(1, 2));
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"Starting up: version 3.3.1", "Tested & stored new config."}));
}

TEST_F(MSPAgentTest, neverRegistersASecondTime) {
  write("default_api.txt", "http://127.0.0.1/api");
  start();
  http.fail(0, "The request timed out.");
  for (int i = 0; i < 5; ++i) mainQueue.fire();
  EXPECT_EQ(http.requests().size(), 1U);
}

TEST_F(MSPAgentTest, takesTheServersIntervalAtTheNextScheduling) {
  write("config.ini", kStored);
  start();
  std::vector<double> expected{30.0};
  std::size_t checkIns = 1;
  for (const double interval : {300.0, 0.0, -1.0, 1e308}) {
    ASSERT_TRUE(waitForCheckIns(checkIns));
    http.answer(posts().back(), 200, R"({"success":1,"checkin_interval":)" + std::to_string(interval) + "}");
    EXPECT_EQ(mainQueue.delays(), expected) << "the tick that is armed already keeps its delay";
    mainQueue.fire();
    expected.push_back(interval);
    EXPECT_EQ(mainQueue.delays(), expected);
    EXPECT_EQ(agent->checkInInterval(), interval);
    ++checkIns;
  }
  ASSERT_TRUE(waitForCheckIns(checkIns));
}

TEST_F(MSPAgentTest, sendsResultsWithTheNextCheckInAndAgainUntilOneSucceeds) {
  write("config.ini", kStored);
  start();
  ASSERT_TRUE(waitForCheckIns(1));
  EXPECT_EQ(report(posts().at(0))["job_results"], Json::array());
  http.answer(posts().at(0), 200, R"({"success":1,"jobs":[{"id":"5","type":"reboot_now"}]})");
  const Json expected = Json::array({{{"id", 5}, {"message", "Unknown task reboot_now"}, {"success", 0}}});

  mainQueue.fire();
  ASSERT_TRUE(waitForCheckIns(2));
  EXPECT_EQ(report(posts().at(1))["job_results"], expected);
  http.answer(posts().at(1), 500, "");

  mainQueue.fire();
  ASSERT_TRUE(waitForCheckIns(3));
  EXPECT_EQ(report(posts().at(2))["job_results"], expected);
  http.answer(posts().at(2), 200, R"({"success":1})");

  mainQueue.fire();
  ASSERT_TRUE(waitForCheckIns(4));
  EXPECT_EQ(report(posts().at(3))["job_results"], Json::array());
}

TEST_F(MSPAgentTest, trimsTheLogBeforeItsFirstLine) {
  write("logfile.log", std::string(9'000, 'a') + "\n" + std::string(2'000, 'b') + "\n");
  const EventSink capturing = setEventSink([this](const std::string& message) { logger.log(message); });
  start();
  setEventSink(capturing);
  std::ifstream stream(directory.file("logfile.log"));
  std::string line;
  std::getline(stream, line);
  EXPECT_TRUE(line.ends_with("\tStarting up: version 3.3.1")) << line;
}

TEST_F(MSPAgentTest, hasAtMostSixtyFourCheckInsUnderWay) {
  write("config.ini", kStored);
  start();
  ASSERT_TRUE(waitForCheckIns(1));
  for (int i = 0; i < 200; ++i) mainQueue.fire();
  EXPECT_EQ(mainQueue.waiting(), 1U) << "every tick arms the next";
  // The server answers nothing, so the sixty-fourth check-in is the last, whatever the ticks do.
  ASSERT_TRUE(waitForCheckIns(64));
  http.answer(posts().at(0), 200, R"({"success":1})");
  mainQueue.fire();
  ASSERT_TRUE(waitForCheckIns(65));
  EXPECT_EQ(posts().size(), 65U);
}

}  // namespace
}  // namespace msp
