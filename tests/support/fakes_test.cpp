#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/fake_main_queue.h"
#include "support/fake_task_runner.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

TEST(FakeTaskRunner, answersFromItsTableAndRecordsWhatWasAsked) {
  FakeTaskRunner runner;
  runner.answer("id anna", "uid=501(anna)");
  std::vector<std::string> observed;
  runner.onRun([&](const std::string& line) { observed.push_back(line); });
  EXPECT_EQ(runner.runCommand("id", {"anna"}), "uid=501(anna)");
  EXPECT_EQ(runner.runCommandStreaming("ps", {"-ax", "-c"}), "");
  EXPECT_EQ(runner.commandLines(), (std::vector<std::string>{"id anna", "streaming ps -ax -c"}));
  EXPECT_EQ(observed, (std::vector<std::string>{"id anna", "ps -ax -c"}));
  runner.runCommand("rm", {"", "a b"});
  EXPECT_TRUE(runner.ran("rm '' 'a b'"));
  EXPECT_TRUE(runner.ran("id anna"));
  EXPECT_FALSE(runner.ran("id"));
  runner.forgetCommandLines();
  EXPECT_FALSE(runner.ran("id anna"));
}

TEST(FakeHost, givesEveryRunnerTheSameTable) {
  FakeHost host;
  host.runner().answer("who", "anna console");
  host.files["/a"] = "content";
  EXPECT_EQ(host.makeTaskRunner()->runCommand("who", {}), "anna console");
  EXPECT_EQ(host.makeTaskRunner()->runCommandStreaming("who", {}), "anna console");
  EXPECT_EQ(host.runner().commandLines(), (std::vector<std::string>{"who", "streaming who"}));
  EXPECT_EQ(host.runnersMade(), 2);
  EXPECT_EQ(host.fileContent("/a"), "content");
  EXPECT_EQ(host.fileContent("/b"), std::nullopt);
  EXPECT_EQ(host.computerName(), "Ana's Mac");
  EXPECT_EQ(host.uptime(), 3600.5);
}

TEST(FakeHttpClient, keepsRequestsUntilTheTestCompletesThem) {
  FakeHttpClient http;
  std::vector<HttpResult> results;
  const auto keep = [&](HttpResult result) { results.push_back(std::move(result)); };
  std::thread sender([&] {
    HttpRequest request;
    request.method = "POST";
    http.send(request, keep);
    request.method = "GET";
    request.url = "http://b/";
    http.send(request, keep);
  });
  EXPECT_TRUE(http.waitForRequests(2));
  EXPECT_TRUE(http.waitForRequests("GET", 1));
  sender.join();
  EXPECT_EQ(http.requests().at(1).url, "http://b/");
  EXPECT_TRUE(results.empty());
  http.fail(1, "refused");
  http.answer(0, 200, "body");
  ASSERT_EQ(results.size(), 2U);
  EXPECT_EQ(results[0].error, "refused");
  EXPECT_FALSE(results[0].answer);
  EXPECT_EQ(results[1].answer->status, 200);
  EXPECT_EQ(results[1].answer->body, "body");
}

TEST(FakeHttpClient, keepsDownloadsByThemselves) {
  FakeHttpClient http;
  std::vector<std::string> errors;
  HttpRequest request;
  request.url = "http://b/";
  http.download(request, [&](DownloadResult result) { errors.push_back(std::move(result.error)); });
  EXPECT_TRUE(http.requests().empty());
  ASSERT_EQ(http.downloads().size(), 1U);
  EXPECT_EQ(http.downloads()[0].url, "http://b/");
  EXPECT_TRUE(errors.empty());
  http.completeDownload(0, {std::nullopt, "refused"});
  EXPECT_EQ(errors, std::vector<std::string>{"refused"});
}

TEST(FakeMainQueue, runsWorkWhenTheTestSaysSo) {
  FakeMainQueue queue;
  int runs = 0;
  queue.runAfter(30, [&] {
    ++runs;
    queue.runAfter(2.5, [&] { runs += 10; });
  });
  queue.run();
  EXPECT_EQ(runs, 0);
  queue.fire();
  EXPECT_EQ(runs, 1);
  queue.fire();
  EXPECT_EQ(runs, 11);
  EXPECT_EQ(queue.delays(), (std::vector<double>{30, 2.5}));
  EXPECT_EQ(queue.waiting(), 0U);
  EXPECT_EQ(queue.runs(), 1);
  EXPECT_THROW(queue.fire(), std::logic_error);
}

TEST(TemporaryDirectory, isFreshAndGoesWithAllThatIsInIt) {
  std::string path;
  {
    const TemporaryDirectory directory;
    const TemporaryDirectory another;
    path = directory.path();
    EXPECT_NE(path, another.path());
    EXPECT_TRUE(std::filesystem::is_empty(path));
    std::ofstream(directory.file("a")) << "content";
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace msp::test
