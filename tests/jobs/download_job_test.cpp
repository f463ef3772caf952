#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "jobs/jobs_manager.h"
#include "platform/curl_http_client.h"
#include "platform/host.h"
#include "platform/temporary_file.h"
#include "support/captured_log.h"
#include "support/denied_system_calls.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/http_calls.h"
#include "support/loopback_server.h"
#include "support/temporary_directory.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;
namespace fs = std::filesystem;

void write(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string wordsFor(std::errc code) { return std::make_error_code(code).message(); }

/// The arguments as the server sends them: a text.
std::string arguments(const std::string& url, const std::string& fileName) {
  return Json{{"url", url}, {"file_name", fileName}}.dump();
}

Job downloadOf(const std::string& url, const std::string& fileName) {
  return Job{{"id", "7"}, {"type", "download_file_from_url"}, {"arguments", arguments(url, fileName)}};
}

JobResult answer(std::string message, std::int64_t success) {
  return {.id = 7, .message = std::move(message), .success = success};
}

class DownloadJob : public testing::Test {
 protected:
  /// Starts the job. The future throws when the completion never comes, and a second one throws here.
  std::future<JobResult> start(const std::string& argumentsText) {
    return start(Job{{"id", "7"}, {"type", "download_file_from_url"}, {"arguments", argumentsText}});
  }
  std::future<JobResult> start(const Job& job) { return start(job, jobs_); }
  static std::future<JobResult> start(const Job& job, const JobsManager& jobs) {
    auto promise = std::make_shared<std::promise<JobResult>>();
    auto future = promise->get_future();
    jobs.downloadFile(job, [promise](JobResult result) { promise->set_value(std::move(result)); });
    return future;
  }
  static bool isOver(const std::future<JobResult>& result) {
    return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }
  static JobResult resultOf(std::future<JobResult> future) {
    if (future.wait_for(std::chrono::minutes(1)) != std::future_status::ready) {
      throw std::runtime_error("the job does not end");
    }
    return future.get();
  }

  /// What a session delivers: a temporary file with this content.
  DownloadResult delivered(const std::string& content) {
    auto created = std::get<OpenTemporaryFile>(createTemporaryFile(directory_.file("session.")));
    write(created.file.path(), content);
    return {std::move(created.file), ""};
  }
  [[nodiscard]] std::ptrdiff_t filesInDirectory() const {
    return std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator());
  }
  /// The log line of this text for these arguments.
  static std::string logLine(const std::string& text, const std::string& argumentsText) {
    return text + ": download_file_from_url: " + printedForm(Json::parse(argumentsText));
  }

  test::TemporaryDirectory directory_;
  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
  JobsManager jobs_{host_, http_};
};

TEST_F(DownloadJob, badArgumentsAreAnsweredAtOnceAndNothingIsRequested) {
  struct Case {
    const char* name;
    Json job;
    const char* logged;
  };
  const auto job = [](const char* argumentsText) {
    return Json{{"id", "7"}, {"type", "download_file_from_url"}, {"arguments", argumentsText}};
  };
  const Case cases[] = {
      {"no arguments", {{"id", "7"}, {"type", "download_file_from_url"}}, ""},
      {"arguments that are no text",
       {{"id", "7"}, {"type", "download_file_from_url"}, {"arguments", {{"url", "http://a/"}}}},
       ""},
      {"arguments that are no JSON", job("http://a/"), ""},
      {"arguments that are no object", job(R"(["http://a/","/b"])"), ""},
      {"an empty object", job("{}"), ": [:]"},
      {"no file name", job(R"({"url":"http://a/b"})"), R"(: ["url": "http://a/b"])"},
      {"a file name that is no text", job(R"({"url":"http://a/b","file_name":1})"),
       R"(: ["url": "http://a/b", "file_name": 1])"},
      {"no URL", job(R"({"file_name":"/b"})"), R"(: ["file_name": "/b"])"},
      {"a URL that is no text", job(R"({"url":null,"file_name":"/b"})"),
       R"(: ["url": <null>, "file_name": "/b"])"},
      {"an empty URL", job(R"({"url":"","file_name":"/b"})"), R"(: ["url": "", "file_name": "/b"])"},
      {"a URL with a blank", job(R"({"url":"http://a/b c","file_name":"/b"})"),
       R"(: ["url": "http://a/b c", "file_name": "/b"])"},
      {"a URL with a broken escape", job(R"({"url":"http://a/%zz","file_name":"/b"})"),
       R"(: ["url": "http://a/%zz", "file_name": "/b"])"},
  };
  host_.files["/b"] = "its existence is not even looked at";
  Lines logged;
  for (const Case& c : cases) {
    auto result = start(c.job);
    ASSERT_TRUE(isOver(result)) << c.name;
    EXPECT_EQ(result.get(), answer("Download Error: Invalid commands", 0)) << c.name;
    logged.push_back(std::string("Download Error: Invalid commands: download_file_from_url") + c.logged);
  }
  EXPECT_EQ(log_.messages(), logged);
  EXPECT_EQ(http_.downloads().size() + http_.requests().size(), 0U);
}

TEST_F(DownloadJob, aFileThatExistsIsRefusedAtOnceUnlessTheCheckIsSkipped) {
  struct Case {
    const char* name;
    std::string replaceExistingFile;
    bool refused;
  };
  const Case cases[] = {
      {"absent", "", true},
      {"the text 0", R"(,"replace_existing_file":"0")", true},
      {"true is no text", R"(,"replace_existing_file":true)", true},
      {"a number is no text", R"(,"replace_existing_file":1)", true},
      {"null is no text", R"(,"replace_existing_file":null)", true},
      {"the text 1", R"(,"replace_existing_file":"1")", false},
      {"the empty text", R"(,"replace_existing_file":"")", false},
      {"the text 00", R"(,"replace_existing_file":"00")", false},
      {"a blank beside the 0", R"(,"replace_existing_file":" 0")", false},
      {"the text false", R"(,"replace_existing_file":"false")", false},
  };
  host_.files["/tmp/a.bin"] = "old";
  Lines logged;
  std::size_t requested = 0;
  for (const Case& c : cases) {
    const std::string text = R"({"url":"http://a/b","file_name":"/tmp/a.bin")" + c.replaceExistingFile + "}";
    auto result = start(text);
    ASSERT_EQ(isOver(result), c.refused) << c.name;
    if (c.refused) {
      EXPECT_EQ(result.get(), answer("Download Error: File already exists", 0)) << c.name;
      logged.push_back(logLine("Download Error: File already exists", text));
    } else {
      ++requested;
    }
    EXPECT_EQ(http_.downloads().size(), requested) << c.name;
  }
  EXPECT_EQ(log_.messages(), logged);
}

TEST_F(DownloadJob, theRequestIsAPlainGetWithoutTimeOutInAll) {
  const auto result = start(arguments("https://example.com/a%20b?c=d#e", directory_.file("new")));
  const auto requests = http_.downloads();
  ASSERT_EQ(requests.size(), 1U);
  const HttpRequest& request = requests.front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.url, "https://example.com/a%20b?c=d#e");
  EXPECT_EQ(request.headers, Lines{});
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(request.idleLimit, std::chrono::seconds(60));
  EXPECT_EQ(request.totalLimit, std::nullopt);
  EXPECT_FALSE(request.waitsForConnectivity);
  EXPECT_EQ(http_.requests().size(), 0U);
  EXPECT_FALSE(isOver(result));
}

TEST_F(DownloadJob, theFileIsMovedToItsPlace) {
  auto result = start(arguments("http://a/b", directory_.file("new")));
  http_.completeDownload(0, delivered("content"));
  EXPECT_EQ(resultOf(std::move(result)), answer("File downloaded to " + directory_.file("new"), 1));
  EXPECT_EQ(contentOf(directory_.file("new")), "content");
  EXPECT_EQ(filesInDirectory(), 1);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(DownloadJob, theIdIsReadAsForEveryJob) {
  struct Case {
    Json id;
    std::int64_t expected;
  };
  for (const auto& [id, expected] : {Case{"12", 12}, {"no number", 0}, {12, 0}, {nullptr, 0}}) {
    const Job job{{"id", id}, {"type", "download_file_from_url"}, {"arguments", "{}"}};
    EXPECT_EQ(start(job).get().id, expected) << id;
  }
}

TEST_F(DownloadJob, aRelativeNameIsBelowTheWorkingDirectory) {
  const std::string name = fs::path(directory_.file("new")).lexically_relative(fs::current_path()).string();
  ASSERT_NE(name.substr(0, 1), "/");
  auto result = start(arguments("http://a/b", name));
  http_.completeDownload(0, delivered("content"));
  EXPECT_EQ(resultOf(std::move(result)), answer("File downloaded to " + name, 1));
  EXPECT_EQ(contentOf(directory_.file("new")), "content");
}

TEST_F(DownloadJob, aTransferThatFailsIsToldInTheSessionsWords) {
  const std::string text = arguments("http://a/b", directory_.file("new"));
  auto result = start(text);
  http_.completeDownload(0, {std::nullopt, "The request timed out."});
  ASSERT_TRUE(isOver(result));
  EXPECT_EQ(result.get(), answer("Download Error: The request timed out.", 0));
  EXPECT_EQ(log_.messages(), Lines{logLine("Download error: The request timed out.", text)});
}

TEST_F(DownloadJob, neitherAnErrorNorAFileIsAFailureToo) {
  const std::string text = arguments("http://a/b", directory_.file("new"));
  auto result = start(text);
  http_.completeDownload(0, {std::nullopt, ""});
  ASSERT_TRUE(isOver(result));
  EXPECT_EQ(result.get(), answer("Download Error: file not downloaded", 0));
  EXPECT_EQ(log_.messages(), Lines{logLine("Download error: file not downloaded", text)});
}

TEST_F(DownloadJob, anErrorCountsMoreThanAFile) {
  auto result = start(arguments("http://a/b", directory_.file("new")));
  DownloadResult both = delivered("half");
  both.error = "cut off";
  http_.completeDownload(0, std::move(both));
  EXPECT_EQ(resultOf(std::move(result)), answer("Download Error: cut off", 0));
  EXPECT_EQ(filesInDirectory(), 0);
}

TEST_F(DownloadJob, aFileThatCannotBeMovedIsToldInTheSystemsWords) {
  struct Case {
    const char* name;
    std::string fileName;
    std::errc code;
  };
  write(directory_.file("file"), "old");
  fs::create_directory(directory_.file("directory"));
  fs::create_symlink("nowhere", directory_.file("dangling"));
  const Case cases[] = {
      {"a file that exists", directory_.file("file"), std::errc::file_exists},
      {"a directory", directory_.file("directory"), std::errc::file_exists},
      {"a dangling link", directory_.file("dangling"), std::errc::file_exists},
      {"no such directory", directory_.file("missing/new"), std::errc::no_such_file_or_directory},
      {"a name below a file", directory_.file("file/new"), std::errc::not_a_directory},
      {"the empty name", "", std::errc::no_such_file_or_directory},
      {"a name too long", directory_.file(std::string(NAME_MAX + 1, 'n')), std::errc::filename_too_long},
      {"a NUL in the name", directory_.file(std::string("new\0er", 6)), std::errc::invalid_argument},
  };
  Lines logged;
  std::size_t number = 0;
  for (const Case& c : cases) {
    const std::string text =
        Json{{"url", "http://a/b"}, {"file_name", c.fileName}, {"replace_existing_file", "1"}}.dump();
    auto result = start(text);
    http_.completeDownload(number++, delivered("new"));
    EXPECT_EQ(resultOf(std::move(result)), answer("Download Error: file not saved: " + wordsFor(c.code), 0))
        << c.name;
    EXPECT_EQ(filesInDirectory(), 3) << c.name;
    logged.push_back(logLine("Download error: file not saved", text));
  }
  EXPECT_EQ(contentOf(directory_.file("file")), "old");
  EXPECT_EQ(log_.messages(), logged);
}

TEST_F(DownloadJob, whatAppearsDuringTheDownloadIsNotOverwritten) {
  auto result = start(arguments("http://a/b", directory_.file("new")));
  write(directory_.file("new"), "somebody else's");
  http_.completeDownload(0, delivered("ours"));
  EXPECT_EQ(resultOf(std::move(result)),
            answer("Download Error: file not saved: " + wordsFor(std::errc::file_exists), 0));
  EXPECT_EQ(contentOf(directory_.file("new")), "somebody else's");
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(DownloadJob, ofManyDownloadsToOneNameOneIsSaved) {
  constexpr std::size_t kDownloads = 32;
  std::vector<std::future<JobResult>> results;
  results.reserve(kDownloads);
  for (std::size_t i = 0; i < kDownloads; ++i) {
    results.push_back(start(arguments("http://a/b", directory_.file("new"))));
  }
  for (std::size_t i = 0; i < kDownloads; ++i) http_.completeDownload(i, delivered("content"));
  int saved = 0, refused = 0;
  for (auto& future : results) {
    const JobResult result = resultOf(std::move(future));
    if (result == answer("File downloaded to " + directory_.file("new"), 1)) ++saved;
    if (result == answer("Download Error: file not saved: " + wordsFor(std::errc::file_exists), 0)) ++refused;
  }
  EXPECT_EQ(saved, 1);
  EXPECT_EQ(refused, kDownloads - 1);
  EXPECT_EQ(filesInDirectory(), 1);
}

TEST_F(DownloadJob, theSessionsThreadDoesNotMoveTheFile) {
  std::promise<std::thread::id> mover;
  jobs_.downloadFile(downloadOf("http://a/b", directory_.file("new")),
                     [&](const JobResult&) { mover.set_value(std::this_thread::get_id()); });
  http_.completeDownload(0, delivered("content"));
  EXPECT_NE(mover.get_future().get(), std::this_thread::get_id());
}

TEST_F(DownloadJob, withoutAThreadForTheMoveThereIsStillAResult) {
  const std::string text = arguments("http://a/b", directory_.file("new"));
  auto result = start(text);
  if (!test::runWithoutProcesses([&] { http_.completeDownload(0, delivered("content")); })) {
    GTEST_SKIP() << "threads cannot be denied here";
  }
  EXPECT_EQ(
      resultOf(std::move(result)),
      answer("Download Error: file not saved: " + wordsFor(std::errc::resource_unavailable_try_again), 0));
  EXPECT_EQ(log_.messages(), Lines{logLine("Download error: file not saved", text)});
  EXPECT_EQ(filesInDirectory(), 0);
}

TEST_F(DownloadJob, onlySoManyDownloadsAreUnderWayAtOnce) {
  constexpr std::size_t kMost = 256;
  const std::string text = arguments("http://a/b", directory_.file("new"));
  std::vector<std::future<JobResult>> results;
  results.reserve(kMost);
  for (std::size_t i = 0; i < kMost; ++i) results.push_back(start(text));
  EXPECT_EQ(http_.downloads().size(), kMost);

  auto refused = start(text);
  ASSERT_TRUE(isOver(refused));
  EXPECT_EQ(refused.get(), answer("Download Error: too many downloads are under way", 0));
  EXPECT_EQ(log_.messages(), Lines{logLine("Download error: too many downloads are under way", text)});
  EXPECT_EQ(http_.downloads().size(), kMost);

  http_.completeDownload(0, {std::nullopt, "cut off"});
  EXPECT_FALSE(isOver(start(text)));
  EXPECT_EQ(http_.downloads().size(), kMost + 1);
}

TEST_F(DownloadJob, manyDownloadsThroughTheRealClientAllEnd) {
  constexpr int kDownloads = 32;
  test::LoopbackServer server(test::LoopbackServer::answering([](const test::ReceivedRequest& request) {
    return test::httpAnswer(404, request.target + std::string(100'000, 'x'));
  }));
  const test::TemporaryDirectory arrivals;
  initializeHttp();
  auto surroundings = test::surroundings();
  surroundings.temporaryDirectory = arrivals.path();
  CurlHttpClient http(std::move(surroundings));
  const JobsManager jobs(systemHost(), http);
  std::vector<std::future<JobResult>> results;
  results.reserve(kDownloads);
  for (int i = 0; i < kDownloads; ++i) {
    const std::string name = std::to_string(i);
    results.push_back(start(downloadOf(server.url("/" + name), directory_.file(name)), jobs));
  }
  for (int i = 0; i < kDownloads; ++i) {
    const std::string name = std::to_string(i);
    EXPECT_EQ(resultOf(std::move(results[static_cast<std::size_t>(i)])),
              answer("File downloaded to " + directory_.file(name), 1));
    EXPECT_TRUE(contentOf(directory_.file(name)) == "/" + name + std::string(100'000, 'x')) << name;
  }
  EXPECT_EQ(start(downloadOf(server.url("/0"), directory_.file("0")), jobs).get(),
            answer("Download Error: File already exists", 0));
  EXPECT_EQ(filesInDirectory(), kDownloads);
  EXPECT_TRUE(fs::is_empty(arrivals.path()));
}

}  // namespace
}  // namespace msp
