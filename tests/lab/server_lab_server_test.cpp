#include <gtest/gtest.h>
#include <httplib.h>

#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "server/lab_server.h"

namespace msp::lab {
namespace {

using namespace std::chrono_literals;

/// Far beyond what any wait here takes, so that only a defect ends in it.
LabServer::Clock::time_point soon() { return LabServer::Clock::now() + 30s; }

const std::string kTest = R"({"api_action":"msp","api_version":1,"task":"test"})";

std::string checkIn(const std::vector<Json>& results = {}) {
  const Json report = {{"name", "A"}, {"job_results", results}};
  return compact({{"api_action", "msp"},
                  {"api_version", 1},
                  {"task", "checkin"},
                  {"uuid", "u"},
                  {"data", compact(report)}});
}

/// An agent's connection, kept open between requests.
class LabServerTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(server_.start()); }

  /// "200 body", or "" when there is no answer.
  std::string post(httplib::Client& client, const std::string& body, const std::string& path = "/") {
    client.set_tcp_nodelay(true);
    const auto answer = client.Post(path, body, "application/json");
    return answer ? std::to_string(answer->status) + " " + answer->body : "";
  }
  std::string post(const std::string& body, const std::string& path = "/") {
    httplib::Client client("127.0.0.1", server_.port());
    return post(client, body, path);
  }

  LabServer server_;
};

TEST_F(LabServerTest, itSpeaksTheProtocolAtEveryPath) {
  EXPECT_EQ(post(kTest), R"(200 {"test_success":1})");
  EXPECT_EQ(post(kTest, "/api/v2?x=1"), R"(200 {"test_success":1})");
  const auto received = server_.received();
  ASSERT_EQ(received.size(), 2U);
  EXPECT_EQ(received[1]->number, 2U);
  EXPECT_EQ(received[1]->path, "/api/v2");
  EXPECT_EQ(received[1]->body, kTest);
  EXPECT_EQ(received[1]->header("content-type"), "application/json");
  EXPECT_EQ(received[1]->header("Remote_Addr"), std::nullopt);
  EXPECT_LE(received[0]->arrival, received[1]->arrival);
}

TEST_F(LabServerTest, badRequestsAreRefusedAndKept) {
  EXPECT_EQ(post("nonsense"), R"(400 {"error":"the body is not a JSON object"})");
  EXPECT_EQ(post(""), R"(400 {"error":"the body is not a JSON object"})");
  EXPECT_EQ(post(R"({"api_action":"msp","api_version":1,"task":"checkin"})"),
            R"(400 {"error":"there is no uuid"})");
  ASSERT_EQ(server_.received().size(), 3U);
  EXPECT_EQ(server_.received()[0]->body, "nonsense");
  EXPECT_EQ(server_.received("checkin").size(), 1U);
  httplib::Client client("127.0.0.1", server_.port());
  EXPECT_EQ(client.Get("/")->status, 404);
}

TEST_F(LabServerTest, eachQueuedJobIsHandedOutOnce) {
  EXPECT_EQ(server_.queueJob("get_processes"), 1);
  EXPECT_EQ(server_.queueJob("kill_process", {{"pid", "9"}}), 2);
  server_.queueRawJob(7);
  server_.setCheckInInterval(2);
  EXPECT_EQ(post(checkIn()),
            R"(200 {"success":1,"jobs":[{"id":"1","type":"get_processes"},)"
            R"({"id":"2","type":"kill_process","arguments":"{\"pid\":\"9\"}"},7],"checkin_interval":2})");
  server_.setCheckInInterval(std::nullopt);
  EXPECT_EQ(post(checkIn()), R"(200 {"success":1,"jobs":[]})");
  EXPECT_EQ(server_.jobs().size(), 3U);
}

TEST_F(LabServerTest, aJobQueuedWhenARequestArrivesGoesOutWithItsAnswer) {
  LabServer* server = nullptr;
  std::vector<std::string> seen;
  LabServer observed(
      {[&](const Received& received) {
         seen.push_back("arrived: " + received.message.task);
         server->queueJob("restart");
       },
       [&](const Received&, const ServerAnswer& answer) { seen.push_back("answered: " + answer.body); },
       [&](const Json& job) { seen.push_back("queued: " + compact(job)); }});
  server = &observed;
  ASSERT_TRUE(observed.start());
  httplib::Client client("127.0.0.1", observed.port());
  EXPECT_EQ(post(client, checkIn()), R"(200 {"success":1,"jobs":[{"id":"1","type":"restart"}]})");
  observed.stop();
  EXPECT_EQ(seen,
            (std::vector<std::string>{"arrived: checkin", R"(queued: {"id":"1","type":"restart"})",
                                      R"(answered: {"success":1,"jobs":[{"id":"1","type":"restart"}]})"}));
}

TEST_F(LabServerTest, jobsQueuedTogetherGoOutWithOneAnswer) {
  const std::vector<Json> pair = {Json(1), Json("two")};
  constexpr std::size_t kPairs = 20'000;
  std::thread queueing([&] {
    for (std::size_t i = 0; i < kPairs; ++i) server_.queueRawJobs(pair);
  });
  for (std::size_t handedOut = 0; handedOut < kPairs * pair.size();) {
    const auto jobs = Json::parse(post(checkIn()).substr(4)).at("jobs").get<std::vector<Json>>();
    EXPECT_EQ(jobs.size() % pair.size(), 0U);
    handedOut += jobs.size();
  }
  queueing.join();
}

TEST_F(LabServerTest, resultsAreKeptByTheirJobEvenWhenSentAgain) {
  const Json first = {{"id", 1}, {"message", ""}, {"success", 1}};
  const Json again = {{"id", 1}, {"message", "again"}, {"success", 1}};
  post(checkIn({first, Json(7), Json{{"id", "1"}}, Json{{"id", 2}}}));
  post(checkIn({again}));
  EXPECT_EQ(server_.results(1), (std::vector<Json>{first, again}));
  EXPECT_EQ(server_.results(2), (std::vector<Json>{Json{{"id", 2}}}));
  EXPECT_EQ(server_.results(3), std::vector<Json>{});
  EXPECT_EQ(server_.waitForResult(1, soon()), first);
}

TEST_F(LabServerTest, waitingEndsWithWhatIsWaitedForOrAtTheDeadline) {
  auto waitingForCheckIns =
      std::async(std::launch::async, [&] { return server_.waitForCheckIns(2, soon()); });
  auto waitingForRequests =
      std::async(std::launch::async, [&] { return server_.waitForRequests(3, soon()); });
  auto waitingForResult = std::async(std::launch::async, [&] { return server_.waitForResult(5, soon()); });
  post(kTest);
  post(checkIn());
  post(checkIn({Json{{"id", 5}}}));
  EXPECT_TRUE(waitingForCheckIns.get());
  EXPECT_TRUE(waitingForRequests.get());
  EXPECT_EQ(waitingForResult.get(), Json({{"id", 5}}));

  const auto passed = LabServer::Clock::now();
  EXPECT_FALSE(server_.waitForCheckIns(3, passed));
  EXPECT_FALSE(server_.waitForRequests(4, passed));
  EXPECT_EQ(server_.waitForResult(6, passed), std::nullopt);
}

TEST_F(LabServerTest, stoppingEndsWaitingAndIdleConnectionsAtOnce) {
  httplib::Client idle("127.0.0.1", server_.port());
  idle.set_keep_alive(true);
  EXPECT_EQ(post(idle, kTest), R"(200 {"test_success":1})");
  auto waiting = std::async(std::launch::async, [&] { return server_.waitForCheckIns(1, soon()); });
  const auto before = LabServer::Clock::now();
  server_.stop();
  EXPECT_FALSE(waiting.get());
  EXPECT_LT(LabServer::Clock::now() - before, 20s);  // far below the time for which it is kept open
  EXPECT_EQ(post(kTest), "");
}

TEST_F(LabServerTest, itCanBeStartedAgainAtTheSamePort) {
  server_.queueJob("restart");
  const int port = server_.port();
  EXPECT_FALSE(server_.start()) << "it listens already";
  server_.stop();
  ASSERT_TRUE(server_.start(port));
  EXPECT_EQ(server_.url(), "http://127.0.0.1:" + std::to_string(port) + "/");
  EXPECT_EQ(post(checkIn()), R"(200 {"success":1,"jobs":[{"id":"1","type":"restart"}]})");

  LabServer second;
  EXPECT_FALSE(second.start(port)) << "a port is one server's";
  EXPECT_TRUE(second.start());
}

TEST_F(LabServerTest, connectionsAreCountedAndToldApart) {
  httplib::Client one("127.0.0.1", server_.port());
  httplib::Client other("127.0.0.1", server_.port());
  one.set_keep_alive(true);
  other.set_keep_alive(true);
  for (int i = 0; i < 10; ++i) post(one, kTest);
  post(other, kTest);
  post(one, kTest);
  EXPECT_EQ(server_.connections(), 2U);
  const auto received = server_.received();
  ASSERT_EQ(received.size(), 12U);
  EXPECT_EQ(received[0]->peerPort, received[9]->peerPort);
  EXPECT_EQ(received[0]->peerPort, received[11]->peerPort);
  EXPECT_NE(received[0]->peerPort, received[10]->peerPort);
}

TEST_F(LabServerTest, anAnswerCanBeReplaced) {
  const std::string huge(8'000'000, 'x');
  server_.answerWith("test", [&](const Received&) { return ServerAnswer{200, huge, "text/plain"}; });
  EXPECT_EQ(post(kTest), "200 " + huge);
  server_.answerWith("test", [](const Received&) { return ServerAnswer{500, ""}; });
  EXPECT_EQ(post(kTest), "500 ");
  server_.answerWith("", [](const Received&) { return ServerAnswer{200, "no task"}; });
  EXPECT_EQ(post("[]"), "200 no task");
  server_.answerWith("test", [](const Received&) {
    return ServerAnswer{200, "", "text/plain", {{"X-Lab", "yes"}}};
  });
  httplib::Client client("127.0.0.1", server_.port());
  EXPECT_EQ(client.Post("/", kTest, "application/json")->get_header_value("X-Lab"), "yes");
  server_.answerNormally("test");
  EXPECT_EQ(post(kTest), R"(200 {"test_success":1})");

  server_.queueJob("restart");
  server_.answerWith("checkin", [&](const Received& received) {
    ServerAnswer answer = server_.normalAnswer(received);
    answer.status = 201;
    return answer;
  });
  EXPECT_EQ(post(checkIn()), R"(201 {"success":1,"jobs":[{"id":"1","type":"restart"}]})");
}

TEST_F(LabServerTest, anAnswerCanBeCutOff) {
  server_.answerWith("test",
                     [](const Received&) { return ServerAnswer{.body = R"({"test_succ)", .cutOff = true}; });
  httplib::Client client("127.0.0.1", server_.port());
  const auto answer = client.Post("/", kTest, "application/json");
  EXPECT_FALSE(answer);
  EXPECT_EQ(answer.error(), httplib::Error::Read);
}

TEST_F(LabServerTest, aHeldAnswerWaitsForItsReleaseAndHoldsUpNobodyElse) {
  server_.holdAnswers("checkin");
  auto held = std::async(std::launch::async, [&] { return post(checkIn()); });
  ASSERT_TRUE(server_.waitForCheckIns(1, soon()));
  EXPECT_EQ(post(kTest), R"(200 {"test_success":1})");
  server_.queueJob("restart");
  EXPECT_EQ(held.wait_for(0s), std::future_status::timeout);
  server_.releaseAnswers("checkin");
  EXPECT_EQ(held.get(), R"(200 {"success":1,"jobs":[{"id":"1","type":"restart"}]})");
}

TEST_F(LabServerTest, aHundredHeldAnswersAreNoObstacleAndStoppingLetsThemGo) {
  constexpr std::size_t kMany = 100;
  server_.holdAnswers("test");
  std::vector<std::future<std::string>> held;
  for (std::size_t i = 0; i < kMany; ++i)
    held.push_back(std::async(std::launch::async, [&] {
      httplib::Client client("127.0.0.1", server_.port());
      client.set_read_timeout(60s);
      return post(client, kTest);
    }));
  ASSERT_TRUE(server_.waitForRequests(kMany, soon()));
  EXPECT_EQ(server_.connections(), kMany);
  EXPECT_EQ(post(checkIn()), R"(200 {"success":1,"jobs":[]})");
  server_.stop();
  for (auto& one : held) EXPECT_EQ(one.get(), "");
}

TEST_F(LabServerTest, scriptsQueueJobsAndReadWhatCameIn) {
  EXPECT_EQ(post(R"({"type":"kill_process","arguments":{"pid":"9"}})", "/lab/jobs"), R"(200 {"id":"1"})");
  EXPECT_EQ(post(R"({"type":"restart"})", "/lab/jobs"), R"(200 {"id":"2"})");
  for (const std::string bad : {"", "[]", "{}", R"({"type":1})", "{\"type\":\"\xff\"}"})
    EXPECT_EQ(post(bad, "/lab/jobs"), R"(400 {"error":"a job is a JSON object with a text \"type\""})")
        << bad;
  EXPECT_EQ(post(checkIn({Json{{"id", 3}}})),
            R"(200 {"success":1,"jobs":[{"id":"1","type":"kill_process","arguments":"{\"pid\":\"9\"}"},)"
            R"({"id":"2","type":"restart"}]})");
  post("\xff");

  httplib::Client client("127.0.0.1", server_.port());
  const Json all = Json::parse(client.Get("/lab/received")->body);
  ASSERT_EQ(all["requests"].size(), 2U);
  EXPECT_EQ(all["requests"][0]["task"], "checkin");
  EXPECT_EQ(all["requests"][0]["problem"], "");
  EXPECT_EQ(all["requests"][1]["body"], "\ufffd");
  EXPECT_EQ(all["jobs"].size(), 2U);
  EXPECT_EQ(all["results"], Json::parse(R"([{"id":3}])"));
}

TEST_F(LabServerTest, manyAgentsAreServedAtTheSameTime) {
  constexpr int kAgents = 8;
  constexpr int kCheckIns = 25;
  for (int i = 0; i < kAgents * kCheckIns; ++i) server_.queueJob("restart");
  std::vector<std::thread> agents;
  agents.reserve(kAgents);
  for (int agent = 0; agent < kAgents; ++agent)
    agents.emplace_back([&] {
      httplib::Client client("127.0.0.1", server_.port());
      client.set_keep_alive(true);
      for (int i = 0; i < kCheckIns; ++i)
        EXPECT_EQ(post(client, checkIn()).rfind("200 {\"success\":1", 0), 0U);
    });
  for (auto& agent : agents) agent.join();
  EXPECT_TRUE(server_.waitForCheckIns(kAgents * kCheckIns, LabServer::Clock::now()));
  EXPECT_EQ(post(checkIn()), R"(200 {"success":1,"jobs":[]})");
  EXPECT_EQ(server_.connections(), kAgents + 1U);
}

}  // namespace
}  // namespace msp::lab
