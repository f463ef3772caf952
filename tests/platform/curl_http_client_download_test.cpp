#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/curl_http_client.h"
#include "support/captured_log.h"
#include "support/denied_system_calls.h"
#include "support/file_size_limit.h"
#include "support/http_calls.h"
#include "support/loopback_server.h"
#include "support/temporary_directory.h"

// Answers that become files.
namespace msp::test {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::future<DownloadResult> startDownload(HttpClient& client, HttpRequest request) {
  auto promise = std::make_shared<std::promise<DownloadResult>>();
  auto future = promise->get_future();
  client.download(std::move(request),
                  [promise](DownloadResult result) { promise->set_value(std::move(result)); });
  return future;
}

DownloadResult resultOf(std::future<DownloadResult> future) {
  if (future.wait_for(60s) != std::future_status::ready)
    throw std::runtime_error("the download does not end");
  return future.get();
}

DownloadResult download(HttpClient& client, HttpRequest request) {
  return resultOf(startDownload(client, std::move(request)));
}

/// The file's content, or "error: text".
std::string summary(const DownloadResult& result) {
  return result.file ? contentOf(result.file->path()) : "error: " + result.error;
}

class CurlHttpClientDownloadTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { initializeHttp(); }

  /// What a download brings; checks that nothing is left when its result is gone.
  std::string fetch(HttpClient& client, HttpRequest request) {
    std::string text = summary(download(client, std::move(request)));
    EXPECT_EQ(files(), 0) << text;
    return text;
  }
  std::string fetch(const std::string& url) {
    CurlHttpClient client(machine());
    return fetch(client, get(url));
  }

  [[nodiscard]] HttpSurroundings machine() const {
    auto made = surroundings();
    made.temporaryDirectory = arrivals_.path();
    return made;
  }
  /// How many there are where downloads arrive.
  [[nodiscard]] std::ptrdiff_t files() const {
    return std::distance(fs::directory_iterator(arrivals_.path()), fs::directory_iterator());
  }

  TemporaryDirectory arrivals_;
};

TEST_F(CurlHttpClientDownloadTest, theBodyIsInAFileOfItsOwnUntilItsOwnerIsGone) {
  LoopbackServer server(LoopbackServer::answering(
      [](const ReceivedRequest& request) { return httpAnswer(200, request.method + " " + request.target); }));
  CurlHttpClient client(machine());
  {
    const DownloadResult result = download(client, get(server.url("/a%20b?c")));
    ASSERT_TRUE(result.file) << result.error;
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(fs::path(result.file->path()).parent_path(), arrivals_.path());
    EXPECT_EQ(contentOf(result.file->path()), "GET /a%20b?c");
    struct stat status {};
    ASSERT_EQ(stat(result.file->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(files(), 1);
  }
  EXPECT_EQ(files(), 0);
}

TEST_F(CurlHttpClientDownloadTest, anyStatusIsSaved) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    const int status = std::stoi(request.target.substr(1));
    return httpAnswer(status, "the body of " + std::to_string(status));
  }));
  CurlHttpClient client(machine());
  for (const char* status : {"200", "201", "300", "400", "404", "500", "503"}) {
    EXPECT_EQ(fetch(client, get(server.url(std::string("/").append(status)))),
              std::string("the body of ") + status);
  }
}

TEST_F(CurlHttpClientDownloadTest, anEmptyBodyIsAnEmptyFile) {
  LoopbackServer server(
      LoopbackServer::answering([](const ReceivedRequest&) { return httpAnswer(200, ""); }));
  CurlHttpClient client(machine());
  const DownloadResult result = download(client, get(server.url()));
  ASSERT_TRUE(result.file) << result.error;
  EXPECT_EQ(fs::file_size(result.file->path()), 0U);
}

TEST_F(CurlHttpClientDownloadTest, aBodyOver64MiBIsSavedWhole) {
  constexpr std::size_t kSize = std::size_t{100} * 1024 * 1024 + 7;
  LoopbackServer server([](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kSize) + "\r\n\r\n");
    const std::string piece(std::size_t{1} << 20, 'x');
    for (std::size_t sent = 0; sent < kSize; sent += piece.size()) {
      if (!connection.write(std::string_view(piece).substr(0, kSize - sent))) return;
    }
  });
  CurlHttpClient client(machine());
  const DownloadResult result = download(client, get(server.url()));
  ASSERT_TRUE(result.file) << result.error;
  EXPECT_EQ(fs::file_size(result.file->path()), kSize);
}

TEST_F(CurlHttpClientDownloadTest, aBodyOfUnknownLengthIsSavedWhole) {
  LoopbackServer server([](ServerConnection& connection) {
    const auto request = connection.readRequest();
    if (request->target == "/chunked") {
      connection.write(
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\none\r\n3\r\ntwo\r\n0\r\n\r\n");
    } else {
      connection.write("HTTP/1.1 200 OK\r\n\r\nup to the end");
    }
  });
  CurlHttpClient client(machine());
  EXPECT_EQ(fetch(client, get(server.url("/chunked"))), "onetwo");
  EXPECT_EQ(fetch(client, get(server.url("/closed"))), "up to the end");
}

TEST_F(CurlHttpClientDownloadTest, itIsAPlainGetThatAsksForCompression) {
  std::promise<ReceivedRequest> received;
  LoopbackServer server(LoopbackServer::answering([&](const ReceivedRequest& request) {
    received.set_value(request);
    return httpAnswer(200, "");
  }));
  EXPECT_EQ(fetch(server.url()), "");
  const ReceivedRequest request = received.get_future().get();
  std::set<std::string> names;
  for (const auto& line : request.headers) names.insert(line.substr(0, line.find(':')));
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(names, (std::set<std::string>{"Accept", "Accept-Encoding", "Host"}));
}

TEST_F(CurlHttpClientDownloadTest, aCompressedBodyIsSavedDecoded) {
  const std::string hello(
      "\x1f\x8b\x08\0\0\0\0\0\x02\x03\xcb\x48\xcd\xc9\xc9\x07\0\x86\xa6\x10\x36\x05\0\0\0", 25);
  LoopbackServer server(LoopbackServer::answering(
      [&](const ReceivedRequest&) { return httpAnswer(200, hello, {"Content-Encoding: gzip"}); }));
  EXPECT_EQ(fetch(server.url()), "hello");
}

TEST_F(CurlHttpClientDownloadTest, aRedirectIsFollowedAndItsBodyNotSaved) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    if (request.target == "/end") return httpAnswer(200, "end");
    return httpAnswer(302, "a long text about where it moved to", {"Location: /end"});
  }));
  EXPECT_EQ(fetch(server.url("/begin")), "end");
}

TEST_F(CurlHttpClientDownloadTest, aRedirectWithoutLocationIsSaved) {
  LoopbackServer server(
      LoopbackServer::answering([](const ReceivedRequest&) { return httpAnswer(302, "nowhere"); }));
  EXPECT_EQ(fetch(server.url()), "nowhere");
}

TEST_F(CurlHttpClientDownloadTest, aRedirectToAFileOfThisMachineIsUnsupported) {
  const TemporaryDirectory directory;
  write(directory.file("secret"), "secret");
  LoopbackServer server(LoopbackServer::answering([&](const ReceivedRequest&) {
    return httpAnswer(302, "", {"Location: file://" + directory.file("secret")});
  }));
  EXPECT_EQ(fetch(server.url()), "error: unsupported URL");
}

TEST_F(CurlHttpClientDownloadTest, theConnectionIsUsedAgainAndCookiesAreShared) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    return httpAnswer(200, request.header("Cookie"), {"Set-Cookie: name=value"});
  }));
  CurlHttpClient client(machine());
  EXPECT_EQ(fetch(client, get(server.url())), "");
  EXPECT_EQ(askFor(client, get(server.url())), "200 name=value");
  EXPECT_EQ(fetch(client, get(server.url())), "name=value");
  EXPECT_EQ(server.acceptedConnections(), 1);
}

TEST_F(CurlHttpClientDownloadTest, aConnectionKilledHalfWayLeavesNoFile) {
  LoopbackServer server([](ServerConnection& connection) {
    const auto request = connection.readRequest();
    if (request->target == "/nothing") return;
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + std::string(400'000, 'x'));
  });
  CurlHttpClient client(machine());
  EXPECT_EQ(fetch(client, get(server.url("/half"))),
            "error: transfer closed with 600000 bytes remaining to read");
  EXPECT_EQ(fetch(client, get(server.url("/nothing"))), "error: Empty reply from server");
}

TEST_F(CurlHttpClientDownloadTest, aServerThatFallsSilentEndsItAtTheIdleLimit) {
  LoopbackServer server([](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    connection.hang();
  });
  CurlHttpClient client(machine());
  auto request = get(server.url());
  request.idleLimit = 300ms;
  EXPECT_EQ(fetch(client, std::move(request)), "error: The request timed out.");
}

TEST_F(CurlHttpClientDownloadTest, SlowServersHaveAMinuteBetweenTwoBytesAndNoLimitInAll) {
  LoopbackServer server([](ServerConnection& connection) {
    const auto request = connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n");
    for (const char* byte : {"1", "2", "3"}) {
      connection.linger(request->target == "/slow" ? 25s : 65s);
      if (!connection.write(byte)) return;
    }
  });
  CurlHttpClient client(machine());
  auto slow = startDownload(client, get(server.url("/slow")));
  auto tooSlow = startDownload(client, get(server.url("/too-slow")));
  const auto patience = 100s;
  ASSERT_EQ(slow.wait_for(patience), std::future_status::ready);
  EXPECT_EQ(summary(slow.get()), "123");
  ASSERT_EQ(tooSlow.wait_for(patience), std::future_status::ready);
  EXPECT_EQ(summary(tooSlow.get()), "error: The request timed out.");
}

TEST_F(CurlHttpClientDownloadTest, aHostWithoutAddressIsAFailureThatSaysSo) {
  auto surroundings = machine();
  surroundings.resolver = [](const std::string&) { return LookupAnswer{{}, "Name or service not known"}; };
  CurlHttpClient client(std::move(surroundings));
  EXPECT_EQ(fetch(client, get("http://nowhere.test/")),
            "error: Could not resolve host: nowhere.test (Name or service not known)");
}

TEST_F(CurlHttpClientDownloadTest, whatIsNeitherHttpNorAFileIsUnsupported) {
  CurlHttpClient client(machine());
  for (const char* url : {"", "example.com", "/path", "ftp://127.0.0.1/", "mailto:a@b", "http://",
                          "file://elsewhere.test/etc/hosts", "file:etc/hosts", "file:///etc%00/hosts"}) {
    EXPECT_EQ(fetch(client, get(url)), "error: unsupported URL") << url;
  }
}

TEST_F(CurlHttpClientDownloadTest, aFullDiskLeavesNoFileAndTheClientAlive) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    return httpAnswer(200, request.target == "/small" ? "small" : std::string(3'000'000, 'x'));
  }));
  CurlHttpClient client(machine());
  const TemporaryDirectory directory;
  write(directory.file("large"), std::string(3'000'000, 'x'));
  const FileSizeLimit limit(1'000'000);
  EXPECT_EQ(fetch(client, get(server.url("/large"))),
            "error: Cannot write the temporary file: File too large");
  EXPECT_EQ(fetch(client, get("file://" + directory.file("large"))),
            "error: Cannot write the temporary file: File too large");
  EXPECT_EQ(fetch(client, get(server.url("/small"))), "small");
}

TEST_F(CurlHttpClientDownloadTest, withoutADirectoryForItItFails) {
  LoopbackServer server(
      LoopbackServer::answering([](const ReceivedRequest&) { return httpAnswer(200, "body"); }));
  const TemporaryDirectory directory;
  write(directory.file("file"), "content");
  auto surroundings = machine();
  surroundings.temporaryDirectory = directory.file("missing");
  CurlHttpClient client(std::move(surroundings));
  constexpr const char* kExpected = "error: Cannot create a temporary file: No such file or directory";
  EXPECT_EQ(fetch(client, get(server.url())), kExpected);
  EXPECT_EQ(fetch(client, get("file://" + directory.file("file"))), kExpected);
  EXPECT_EQ(askFor(client, get(server.url())), "200 body");
}

TEST_F(CurlHttpClientDownloadTest, manyAtOnceAllEndWhileOtherRequestsGoOn) {
  constexpr int kDownloads = 32;
  std::promise<void> gate;
  const auto opened = gate.get_future().share();
  LoopbackServer server([&](ServerConnection& connection) {
    while (const auto request = connection.readRequest()) {
      if (request->target == "/check-in") {
        if (!connection.write(httpAnswer(200, "ok"))) return;
        continue;
      }
      const std::string body = request->target + std::string(1'000'000, 'x');
      const std::string answer = httpAnswer(200, body);
      if (!connection.write(std::string_view(answer).substr(0, answer.size() / 2))) return;
      opened.wait();
      if (!connection.write(std::string_view(answer).substr(answer.size() / 2))) return;
    }
  });
  CurlHttpClient client(machine());
  std::vector<std::future<DownloadResult>> downloads;
  downloads.reserve(kDownloads);
  for (int i = 0; i < kDownloads; ++i) {
    downloads.push_back(startDownload(client, get(server.url("/" + std::to_string(i)))));
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(askFor(client, get(server.url("/check-in"))), "200 ok");
  gate.set_value();
  for (int i = 0; i < kDownloads; ++i) {
    EXPECT_TRUE(summary(resultOf(std::move(downloads[static_cast<std::size_t>(i)]))) ==
                "/" + std::to_string(i) + std::string(1'000'000, 'x'))
        << i;
  }
  EXPECT_EQ(files(), 0);
}

TEST_F(CurlHttpClientDownloadTest, anEndingClientLeavesNoFileOfWhatIsUnderWay) {
  std::atomic<int> completions = 0;
  std::promise<void> arrived;
  LoopbackServer server([&](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    arrived.set_value();
    connection.hang();
  });
  {
    CurlHttpClient client(machine());
    client.download(get(server.url()), [&](const DownloadResult&) { ++completions; });
    arrived.get_future().wait();
    EXPECT_EQ(files(), 1);
  }
  EXPECT_EQ(files(), 0);
  EXPECT_EQ(completions, 0);
}

TEST_F(CurlHttpClientDownloadTest, anEndingClientStopsCopyingFiles) {
  const TemporaryDirectory directory;
  write(directory.file("huge"), "");
  fs::resize_file(directory.file("huge"), std::uintmax_t{1} << 36);  // it is all one hole
  std::atomic<int> completions = 0;
  {
    CurlHttpClient client(machine());
    for (int i = 0; i < 20; ++i) {
      client.download(get("file://" + directory.file("huge")), [&](const DownloadResult&) { ++completions; });
    }
  }
  EXPECT_EQ(files(), 0);
  EXPECT_EQ(completions, 0);
}

TEST_F(CurlHttpClientDownloadTest, aFileOfThisMachineIsCopied) {
  const TemporaryDirectory directory;
  const std::string content = std::string(1'000'000, 'x') + std::string("\0end", 4);
  write(directory.file("a b"), content);
  fs::create_symlink("a b", directory.file("link"));
  CurlHttpClient client(machine());
  EXPECT_TRUE(fetch(client, get("file://" + directory.file("a%20b"))) == content);
  EXPECT_TRUE(fetch(client, get("FILE://localhost" + directory.file("a%20b?query"))) == content);
  EXPECT_TRUE(fetch(client, get("file:" + directory.file("link"))) == content);
  EXPECT_TRUE(contentOf(directory.file("a b")) == content);
}

TEST_F(CurlHttpClientDownloadTest, onlyRegularFilesOfThisMachineAreCopiedAndNothingHangs) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
  struct Case {
    std::string path;
    const char* error;
  };
  const Case cases[] = {{directory.file("missing"), "error: No such file or directory"},
                        {directory.path(), "error: Is a directory"},
                        {directory.file("pipe"), "error: Not a regular file"},
                        {"/dev/zero", "error: Not a regular file"}};
  CurlHttpClient client(machine());
  for (const auto& [path, error] : cases) EXPECT_EQ(fetch(client, get("file://" + path)), error) << path;
}

TEST_F(CurlHttpClientDownloadTest, withoutAThreadToCopyOnItFails) {
  const TemporaryDirectory directory;
  write(directory.file("file"), "content");
  CurlHttpClient client(machine());
  std::string text;
  if (!runWithoutProcesses([&] { text = fetch(client, get("file://" + directory.file("file"))); })) {
    GTEST_SKIP() << "threads cannot be denied here";
  }
  EXPECT_EQ(text, "error: Resource temporarily unavailable");
}

TEST_F(CurlHttpClientDownloadTest, everyCompletionRunsOnTheClientsOwnThread) {
  const TemporaryDirectory directory;
  write(directory.file("file"), "content");
  LoopbackServer server(
      LoopbackServer::answering([](const ReceivedRequest&) { return httpAnswer(200, "body"); }));
  CurlHttpClient client(machine());
  std::promise<std::thread::id> ofAnAnswer;
  client.send(get(server.url()),
              [&](const HttpResult&) { ofAnAnswer.set_value(std::this_thread::get_id()); });
  const auto expected = ofAnAnswer.get_future().get();
  for (const auto& url :
       {server.url(), "file://" + directory.file("file"), "file://" + directory.file("no")}) {
    std::promise<std::thread::id> ofADownload;
    client.download(get(url),
                    [&](const DownloadResult&) { ofADownload.set_value(std::this_thread::get_id()); });
    EXPECT_EQ(ofADownload.get_future().get(), expected) << url;
  }
}

TEST_F(CurlHttpClientDownloadTest, aCompletionThatThrowsCostsALineInTheLogAndItsFile) {
  LoopbackServer server(
      LoopbackServer::answering([](const ReceivedRequest&) { return httpAnswer(200, "body"); }));
  const CapturedLog log;
  CurlHttpClient client(machine());
  client.download(get(server.url()),
                  [](const DownloadResult&) { throw std::runtime_error("no use for it"); });
  for (int i = 0; log.messages().empty() && i < 1000; ++i) ask(client, get(server.url()));
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Handling an HTTP answer failed: no use for it"});
  ask(client, get(server.url()));
  EXPECT_EQ(files(), 0);
}

}  // namespace
}  // namespace msp::test
