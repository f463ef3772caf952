#include "api/api_manager.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <regex>
#include <sstream>

#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/file_size_limit.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

constexpr char kUrl[] = "http://127.0.0.1:8080/api";
constexpr char kStored[] =
    R"({"api_url":"http://127.0.0.1:8080/api","api_uuid":"4F2A","agent_id":"17","agent_version":"3.3.1"})";

class APIManagerTest : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& content) const {
    std::ofstream(directory.file(name)) << content;
  }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream stream(directory.file(name));
    std::stringstream content;
    content << stream.rdbuf();
    return content.str();
  }
  [[nodiscard]] Json body(std::size_t number) const {
    return JSONUtilities::jsonToDictionary(http.requests().at(number).body);
  }

  /// An agent that holds its jobs back until the test runs them.
  std::unique_ptr<APIManager> makeManager() {
    return std::make_unique<APIManager>("3.3.1", directory.path(), host, http,
                                        [this](const std::string& label, std::function<void()> work) {
                                          if (!threadsLeft) return false;
                                          labels.push_back(label);
                                          batches.push_back(std::move(work));
                                          return true;
                                        });
  }
  std::unique_ptr<APIManager> makeReadyManager() {
    write("config.ini", kStored);
    return makeManager();
  }

  const test::CapturedLog log;
  test::TemporaryDirectory directory;
  test::FakeHost host;
  test::FakeHttpClient http;
  bool threadsLeft = true;
  std::vector<std::string> labels;
  std::vector<std::function<void()>> batches;
};

TEST_F(APIManagerTest, isReadyAtOnceWithAStoredIdentity) {
  write("config.ini", kStored);
  write("default_api.txt", kUrl);
  const auto manager = makeManager();
  EXPECT_TRUE(manager->readyForUse());
  EXPECT_EQ(manager->receivedCheckinInterval(), std::nullopt);
  EXPECT_TRUE(manager->jobResults().empty());
  EXPECT_TRUE(http.requests().empty());
  EXPECT_EQ(read("config.ini"), kStored);
}

TEST_F(APIManagerTest, rewritesAnIdentityOfAnotherVersionAtOnce) {
  write("config.ini", R"({"agent_version":"3.3.0","agent_id":"17","api_uuid":"4F2A","api_url":"http://x/"})");
  const auto manager = makeManager();
  EXPECT_TRUE(manager->readyForUse());
  EXPECT_TRUE(http.requests().empty());
  EXPECT_EQ(read("config.ini"),
            R"({"api_url":"http://x/","api_uuid":"4F2A","agent_id":"17","agent_version":"3.3.1"})");
}

TEST_F(APIManagerTest, registersWhenTheStoredIdentityIsUnusable) {
  struct Case {
    const char* name;
    const char* config;
  };
  const Case cases[] = {
      {"not JSON", "api_url=http://x/"},
      {"half written", R"({"api_url":"http://x/","api_uuid":"4F)"},
      {"empty", ""},
      {"a number as id",
       R"({"api_url":"http://x/","api_uuid":"4F2A","agent_id":17,"agent_version":"3.3.1"})"},
      {"a key missing", R"({"api_url":"http://x/","api_uuid":"4F2A","agent_version":"3.3.1"})"},
      {"not an object", "[]"},
  };
  write("default_api.txt", kUrl);
  testing::internal::CaptureStdout();
  std::size_t requests = 0;
  for (const Case& c : cases) {
    write("config.ini", c.config);
    const auto manager = makeManager();
    EXPECT_FALSE(manager->readyForUse()) << c.name;
    EXPECT_EQ(http.requests().size(), ++requests) << c.name;
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(APIManagerTest, registersTestsAndStoresANewIdentity) {
  write("default_api.txt", std::string("  ") + kUrl + "\n \n");
  const auto manager = makeManager();
  ASSERT_EQ(http.requests().size(), 1U);
  EXPECT_EQ(http.requests()[0].url, kUrl);
  EXPECT_EQ(body(0),
            Json({{"api_action", "msp"}, {"api_version", 1}, {"task", "create"}, {"name", "Anas-Mac"}}));
  EXPECT_FALSE(manager->readyForUse());

  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":"17"})");
  ASSERT_EQ(http.requests().size(), 2U);
  EXPECT_EQ(http.requests()[1].url, kUrl);
  EXPECT_EQ(body(1), Json({{"api_action", "msp"}, {"api_version", 1}, {"task", "test"}}));
  EXPECT_FALSE(manager->readyForUse());
  EXPECT_FALSE(std::filesystem::exists(directory.file("config.ini")));

  http.answer(1, 200, R"({"test_success":1})");
  EXPECT_TRUE(manager->readyForUse());
  EXPECT_EQ(read("config.ini"), kStored);
  EXPECT_EQ(std::filesystem::status(directory.file("config.ini")).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Tested & stored new config."});
}

TEST_F(APIManagerTest, storesAnEmptyIdWhenTheServerSendsANumber) {
  write("default_api.txt", kUrl);
  const auto manager = makeManager();
  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":42})");
  http.answer(1, 200, R"({"test_success":1})");
  EXPECT_EQ(parseConfig(read("config.ini")), (Config{kUrl, "4F2A", "", "3.3.1"}));
}

TEST_F(APIManagerTest, registersUnderTheNameTheSystemShows) {
  struct Case {
    std::optional<std::string> computerName;
    const char* sent;
  };
  const Case cases[] = {
      {"Büro-Mac (2)", "Büro-Mac-2"}, {"Anna's MacBook Pro", "Annas-MacBook-Pro"}, {std::nullopt, ""}};
  write("default_api.txt", kUrl);
  std::size_t number = 0;
  for (const Case& c : cases) {
    host.name = c.computerName;
    const auto manager = makeManager();
    EXPECT_EQ(stringValue(body(number++), "name"), c.sent);
  }
}

TEST_F(APIManagerTest, postsNothingWithoutAServerAddress) {
  const auto manager = makeManager();
  EXPECT_FALSE(manager->readyForUse());
  EXPECT_TRUE(http.requests().empty());
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(APIManagerTest, postsNothingToAnEmptyServerAddress) {
  write("default_api.txt", " \n");
  const auto manager = makeManager();
  EXPECT_TRUE(http.requests().empty());
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(APIManagerTest, stopsSilentlyWhenRegistrationIsRefused) {
  write("default_api.txt", kUrl);
  std::size_t number = 0;
  for (const char* refusal : {R"({"success":0})", R"({"success":"1","uuid":"4F2A","id":"17"})", "{}"}) {
    const auto manager = makeManager();
    http.answer(number++, 200, refusal);
    EXPECT_EQ(http.requests().size(), number) << refusal;
    EXPECT_FALSE(manager->readyForUse()) << refusal;
  }
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(APIManagerTest, saysWhyARegistrationDidNotReachTheServer) {
  write("default_api.txt", kUrl);
  const auto manager = makeManager();
  http.fail(0, "Could not connect to the server.");
  EXPECT_EQ(http.requests().size(), 1U);
  EXPECT_FALSE(manager->readyForUse());
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"POST failed: Could not connect to the server.", "Task: create"}));
}

TEST_F(APIManagerTest, neverUsesAnIdentityThatFailedItsTest) {
  write("default_api.txt", kUrl);
  const auto manager = makeManager();
  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":"17"})");
  http.answer(1, 200, R"({"test_success":0})");
  EXPECT_FALSE(manager->readyForUse());
  EXPECT_FALSE(std::filesystem::exists(directory.file("config.ini")));
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Testing new config failed."});
}

TEST_F(APIManagerTest, saysWhyATestDidNotReachTheServer) {
  write("default_api.txt", kUrl);
  const auto manager = makeManager();
  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":"17"})");
  http.fail(1, "The request timed out.");
  EXPECT_FALSE(manager->readyForUse());
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"POST failed: The request timed out.", "Task: test",
                                                      "Testing new config failed."}));
}

TEST_F(APIManagerTest, keepsAnIdentityThatFailedItsTestInMemory) {
  write("default_api.txt", kUrl);
  const auto manager = makeManager();
  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":"17"})");
  http.answer(1, 200, "{\"test_success\":0}");
  manager->checkIn(GatheredData{}, nullptr);
  EXPECT_EQ(stringValue(body(2), "task"), "checkin");
  EXPECT_EQ(stringValue(body(2), "uuid"), "4F2A");
}

TEST_F(APIManagerTest, carriesTheNewVersionInMemoryWhenItCannotBeWritten) {
  write("config.ini", R"({"api_url":"http://x/","api_uuid":"4F2A","agent_id":"17","agent_version":"3.3.0"})");
  const std::string before = read("config.ini");
  const test::FileSizeLimit limit(10);
  const auto manager = makeManager();
  EXPECT_TRUE(manager->readyForUse());
  EXPECT_EQ(read("config.ini"), before);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Error converting config to JSON: File too large"});
}

TEST_F(APIManagerTest, worksFromMemoryWhenTheIdentityCannotBeStored) {
  write("default_api.txt", kUrl);
  std::filesystem::create_directory(directory.file("config.ini"));
  const auto manager = makeManager();
  http.answer(0, 200, R"({"success":1,"uuid":"4F2A","id":"17"})");
  http.answer(1, 200, R"({"test_success":1})");
  EXPECT_TRUE(manager->readyForUse());
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Error converting config to JSON: Is a directory",
                                                      "Tested & stored new config."}));
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory.path())) ++entries;
  EXPECT_EQ(entries, 2U) << "a stray file was left";
}

TEST_F(APIManagerTest, registersInsteadOfCheckingInWithoutAnIdentity) {
  const auto manager = makeManager();
  write("default_api.txt", kUrl);
  manager->checkIn(GatheredData{}, nullptr);
  ASSERT_EQ(http.requests().size(), 1U);
  EXPECT_EQ(stringValue(body(0), "task"), "create");
}

TEST_F(APIManagerTest, checksInWithItsIdentityAndTheReportAsText) {
  const auto manager = makeReadyManager();
  GatheredData report;
  report.name = "Anas-Mac";
  manager->checkIn(report, nullptr);
  ASSERT_EQ(http.requests().size(), 1U);
  EXPECT_EQ(http.requests()[0].url, kUrl);
  EXPECT_EQ(body(0), Json({{"api_action", "msp"},
                           {"api_version", 1},
                           {"task", "checkin"},
                           {"uuid", "4F2A"},
                           {"data", report.jsonText()}}));
}

TEST_F(APIManagerTest, holdsTheExchangeUntilTheAnswerHasBeenDealtWith) {
  const auto manager = makeReadyManager();
  auto exchange = std::make_shared<int>(0);
  const std::weak_ptr<int> underWay = exchange;
  manager->checkIn(GatheredData{}, std::move(exchange));
  EXPECT_FALSE(underWay.expired());
  http.answer(0, 200, R"({"success":1,"jobs":[{"id":"1","type":"x"}]})");
  EXPECT_TRUE(underWay.expired()) << "jobs must not hold up check-ins";
}

TEST_F(APIManagerTest, letsGoOfAnExchangeThatNeverReachesTheWire) {
  write("config.ini", R"({"api_url":"","api_uuid":"4F2A","agent_id":"17","agent_version":"3.3.1"})");
  const auto manager = makeManager();
  auto exchange = std::make_shared<int>(0);
  const std::weak_ptr<int> underWay = exchange;
  manager->checkIn(GatheredData{}, std::move(exchange));
  EXPECT_TRUE(underWay.expired());
  EXPECT_TRUE(http.requests().empty());
}

TEST_F(APIManagerTest, emptiesItsResultsWhenTheAnswerArrives) {
  const auto manager = makeReadyManager();
  manager->appendJobResult({1, "sent", 1});
  manager->checkIn(GatheredData{}, nullptr);
  manager->appendJobResult({2, "came in between, and is dropped", 1});
  EXPECT_EQ(manager->jobResults().size(), 2U);
  http.answer(0, 200, R"({"success":1})");
  EXPECT_TRUE(manager->jobResults().empty());
  EXPECT_TRUE(batches.empty());
  EXPECT_EQ(manager->receivedCheckinInterval(), std::nullopt);
}

TEST_F(APIManagerTest, keepsItsResultsWhenTheCheckInDidNotSucceed) {
  const auto manager = makeReadyManager();
  manager->appendJobResult({1, "kept", 1});
  const char* const answers[] = {R"({"success":0,"jobs":[{"id":"1","type":"x"}],"checkin_interval":5})",
                                 R"({"jobs":[{"id":"1","type":"x"}]})", "{}"};
  std::size_t number = 0;
  for (const char* answer : answers) {
    manager->checkIn(GatheredData{}, nullptr);
    http.answer(number++, 200, answer);
  }
  manager->checkIn(GatheredData{}, nullptr);
  http.answer(number++, 500, R"({"success":1})");
  manager->checkIn(GatheredData{}, nullptr);
  http.fail(number++, "The request timed out.");
  EXPECT_EQ(manager->jobResults(), (std::vector<JobResult>{{1, "kept", 1}}));
  EXPECT_TRUE(batches.empty());
  EXPECT_EQ(manager->receivedCheckinInterval(), std::nullopt);
}

TEST_F(APIManagerTest, takesTheServersIntervalAndKeepsItUntilTheNext) {
  const auto manager = makeReadyManager();
  std::size_t number = 0;
  const auto intervalAfter = [&](const char* answer) {
    manager->checkIn(GatheredData{}, nullptr);
    http.answer(number++, 200, answer);
    return manager->receivedCheckinInterval();
  };
  EXPECT_EQ(intervalAfter(R"({"success":1,"checkin_interval":120.5})"), 120.5);
  EXPECT_EQ(intervalAfter(R"({"success":1})"), 120.5);
  EXPECT_EQ(intervalAfter(R"({"success":1,"checkin_interval":"120"})"), 120.5);
  EXPECT_EQ(intervalAfter(R"({"success":1,"checkin_interval":0})"), 0.0);
  EXPECT_EQ(intervalAfter(R"({"success":1,"checkin_interval":-1})"), -1.0);
}

TEST_F(APIManagerTest, runsABatchInItsOrderAndAppendsItAtOnce) {
  const auto manager = makeReadyManager();
  host.runner().answer("ps -ax -c -r -o pid,%cpu,rss,comm", "1 0.5 18044 launchd\n");
  host.runner().onRun([&](const std::string&) {
    EXPECT_TRUE(manager->jobResults().empty()) << "a result arrived before its batch had ended";
  });
  manager->checkIn(GatheredData{}, nullptr);
  http.answer(0, 200,
              R"({"success":1,"jobs":[{"id":"1","type":"A"},{"id":"2"},{"id":"3","type":"get_processes"},
                          {"id":"4","type":"C"}]})");
  ASSERT_EQ(batches.size(), 1U);
  EXPECT_TRUE(std::regex_match(
      labels[0], std::regex(R"(org\.msp-agent\.agent-jobs\.[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12})")))
      << labels[0];
  EXPECT_TRUE(manager->jobResults().empty());
  batches[0]();
  EXPECT_EQ(manager->jobResults(),
            (std::vector<JobResult>{{1, "Unknown task A", 0},
                                    {.id = 3,
                                     .message = "",
                                     .success = 1,
                                     .processes = {{ProcessData{"launchd", 1, 0.5, 18044, "", "launchd"}}}},
                                    {4, "Unknown task C", 0}}));
}

TEST_F(APIManagerTest, aDownloadHoldsUpNeitherItsBatchNorItsResults) {
  const auto manager = makeReadyManager();
  manager->checkIn(GatheredData{}, nullptr);
  http.answer(0, 200,
              R"({"success":1,"jobs":[{"id":"1","type":"download_file_from_url",
                 "arguments":"{\"url\":\"http://127.0.0.1/a\",\"file_name\":\"/nowhere/a\"}"},
                 {"id":"2","type":"A"}]})");
  batches.at(0)();
  EXPECT_EQ(manager->jobResults(), (std::vector<JobResult>{{2, "Unknown task A", 0}}));
  http.completeDownload(0, {std::nullopt, "no route"});
  EXPECT_EQ(manager->jobResults(),
            (std::vector<JobResult>{{2, "Unknown task A", 0}, {1, "Download Error: no route", 0}}));
}

TEST_F(APIManagerTest, givesEachAnswerABatchOfItsOwn) {
  const auto manager = makeReadyManager();
  for (std::size_t number = 0; number < 2; ++number) {
    manager->checkIn(GatheredData{}, nullptr);
    http.answer(number, 200,
                R"({"success":1,"jobs":[{"id":")" + std::to_string(number) + R"(","type":"A"}]})");
  }
  ASSERT_EQ(batches.size(), 2U);
  EXPECT_NE(labels[0], labels[1]);
  batches[1]();  // the first one hangs
  ASSERT_EQ(manager->jobResults().size(), 1U);
  EXPECT_EQ(manager->jobResults()[0].id, 1);
}

TEST_F(APIManagerTest, startsNoBatchWithoutUsableJobs) {
  const auto manager = makeReadyManager();
  std::size_t number = 0;
  for (const char* jobs : {"[]", "[5]", "[null]", R"("x")", "{}", R"([{"type":"A"},7])"}) {
    manager->checkIn(GatheredData{}, nullptr);
    http.answer(number++, 200, std::string(R"({"success":1,"jobs":)") + jobs + "}");
  }
  EXPECT_TRUE(batches.empty());
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(APIManagerTest, answersForJobsThatTheSystemHasNoThreadFor) {
  const auto manager = makeReadyManager();
  threadsLeft = false;
  manager->checkIn(GatheredData{}, nullptr);
  http.answer(0, 200,
              R"({"success":1,"jobs":[{"id":"1","type":"get_processes"},{"id":"7"},{"id":"2","type":"B"}]})");
  EXPECT_EQ(manager->jobResults(), (std::vector<JobResult>{{1, "Error - unable to start job queue", 0},
                                                           {2, "Error - unable to start job queue", 0}}));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Unable to start job queue: get_processes",
                                                      "Unable to start job queue: B"}));
}

}  // namespace
}  // namespace msp
