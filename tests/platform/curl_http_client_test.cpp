#include "platform/curl_http_client.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <fstream>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/captured_log.h"
#include "support/http_calls.h"
#include "support/loopback_server.h"

namespace msp::test {
namespace {

class CurlHttpClientTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { initializeHttp(); }
};

/// "/404" for 404. Not written with "+", which g++ 12 takes for an overlapping copy.
std::string pathOf(int number) { return std::string("/").append(std::to_string(number)); }

std::string echo(const ReceivedRequest& request) {
  return httpAnswer(200, request.method + " " + request.target + " " + request.body);
}

TEST_F(CurlHttpClientTest, anyStatusIsAnAnswer) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    return httpAnswer(std::stoi(request.target.substr(1)), "body");
  }));
  CurlHttpClient client(surroundings());
  for (const int status : {200, 201, 300, 400, 404, 500, 503}) {
    EXPECT_EQ(askFor(client, get(server.url(pathOf(status)))), std::to_string(status) + " body");
  }
}

TEST_F(CurlHttpClientTest, consecutiveRequestsUseOneConnection) {
  LoopbackServer server(LoopbackServer::answering(echo));
  CurlHttpClient client(surroundings());
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(askFor(client, post(server.url("/a", "server.test"), "{}")), "200 POST /a {}");
    EXPECT_EQ(askFor(client, get(server.url("/b", "server.test"))), "200 GET /b ");
  }
  EXPECT_EQ(server.acceptedConnections(), 1);
}

TEST_F(CurlHttpClientTest, aPostSendsNoHeaderOfItsOwnButContentType) {
  std::promise<ReceivedRequest> received;
  LoopbackServer server(LoopbackServer::answering([&](const ReceivedRequest& request) {
    received.set_value(request);
    return httpAnswer(200, "");
  }));
  CurlHttpClient client(surroundings());
  const std::string body(2 * 1024 * 1024, 'x');
  EXPECT_EQ(askFor(client, post(server.url(), body)), "200 ");
  const ReceivedRequest request = received.get_future().get();
  std::multiset<std::string> names;
  for (const auto& line : request.headers) names.insert(line.substr(0, line.find(':')));
  EXPECT_EQ(names, (std::multiset<std::string>{"Accept", "Accept-Encoding", "Content-Length", "Content-Type",
                                               "Host"}));
  EXPECT_EQ(request.header("Content-Type"), "application/json");
  EXPECT_EQ(request.header("Accept"), "*/*");
  EXPECT_EQ(request.body, body);
}

TEST_F(CurlHttpClientTest, aPostWithoutBodyIsAPost) {
  LoopbackServer server(LoopbackServer::answering(echo));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, post(server.url("/empty"), "")), "200 POST /empty ");
}

TEST_F(CurlHttpClientTest, aBodyMayHoldAnyByte) {
  LoopbackServer server(LoopbackServer::answering(
      [](const ReceivedRequest& request) { return httpAnswer(200, request.body); }));
  CurlHttpClient client(surroundings());
  const std::string body("a\0\xFF\r\n\r\nb", 8);
  EXPECT_EQ(askFor(client, post(server.url(), body)), "200 " + body);
}

TEST_F(CurlHttpClientTest, aPostWhoseKeptConnectionWasClosedMeanwhileIsSentAgain) {
  std::atomic<int> connections = 0;
  LoopbackServer server([&](ServerConnection& connection) {
    const bool breaksOff = connections++ == 0;
    auto request = connection.readRequest();
    connection.write(echo(*request));
    request = connection.readRequest();
    if (request && !breaksOff) connection.write(echo(*request));
  });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, post(server.url(), "one")), "200 POST / one");
  EXPECT_EQ(askFor(client, post(server.url(), "two")), "200 POST / two");
  EXPECT_EQ(server.acceptedConnections(), 2);
}

TEST_F(CurlHttpClientTest, aConnectionClosedAfterEachAnswerIsReplaced) {
  LoopbackServer server([](ServerConnection& connection) {
    if (const auto request = connection.readRequest()) connection.write(echo(*request));
  });
  CurlHttpClient client(surroundings());
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(askFor(client, post(server.url("/", "server.test"), "body")), "200 POST / body");
  }
  EXPECT_EQ(server.acceptedConnections(), 5);
}

TEST_F(CurlHttpClientTest, aConnectionBrokenOffBeforeTheAnswerIsAFailure) {
  LoopbackServer server([](ServerConnection& connection) { connection.readRequest(); });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: Empty reply from server");
}

TEST_F(CurlHttpClientTest, anAnswerThatEndsEarlyIsAFailure) {
  LoopbackServer server([](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort");
  });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: transfer closed with 5 bytes remaining to read");
}

TEST_F(CurlHttpClientTest, anAnswerThatIsNotHttpIsAFailure) {
  LoopbackServer server([](ServerConnection& connection) {
    connection.readRequest();
    connection.write("SSH-2.0-Server\r\n");
  });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: Received HTTP/0.9 when not allowed");
}

TEST_F(CurlHttpClientTest, aRefusedConnectionFailsAtOnce) {
  std::string url;
  {
    const LoopbackServer server([](ServerConnection&) {});
    url = server.url();
  }
  auto machine = surroundings();
  machine.hasUsableNetwork = [] { return false; };
  CurlHttpClient client(std::move(machine));
  auto request = get(url);
  request.totalLimit = 60s;
  request.waitsForConnectivity = true;
  const HttpResult result = ask(client, std::move(request));
  EXPECT_FALSE(result.answer);
  EXPECT_EQ(result.error.find("Failed to connect to 127.0.0.1 port"), 0U) << result.error;
}

TEST_F(CurlHttpClientTest, whatIsNoHttpUrlIsUnsupported) {
  CurlHttpClient client(surroundings());
  for (const char* url : {"", "example.com", "/path", "ftp://127.0.0.1/", "file:///etc/hosts", "mailto:a@b",
                          "http://", "http://host:99999/", "http://h\xC3\xBCst/", "http://a b/"}) {
    EXPECT_EQ(askFor(client, get(url)), "error: unsupported URL") << url;
  }
}

TEST_F(CurlHttpClientTest, otherMethodsAreUnsupported) {
  CurlHttpClient client(surroundings());
  auto request = get("http://127.0.0.1/");
  request.method = "DELETE";
  EXPECT_EQ(askFor(client, std::move(request)), "error: unsupported method");
}

TEST_F(CurlHttpClientTest, redirectsAreFollowed) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    if (request.target == "/end") {
      return httpAnswer(200, request.method + " [" + request.header("Content-Type") + "] " + request.body);
    }
    return httpAnswer(std::stoi(request.target.substr(1)), "moved", {"Location: end"});
  }));
  CurlHttpClient client(surroundings());
  struct Case {
    int status;
    const char *afterGet, *afterPost;
  };
  for (const auto& [status, afterGet, afterPost] : {Case{301, "200 GET [] ", "200 GET [] "},
                                                    {302, "200 GET [] ", "200 GET [] "},
                                                    {303, "200 GET [] ", "200 GET [] "},
                                                    {307, "200 GET [] ", "200 POST [application/json] body"},
                                                    {308, "200 GET [] ", "200 POST [application/json] body"},
                                                    {300, "300 moved", "300 moved"},
                                                    {304, "304 ", "304 "},
                                                    {305, "305 moved", "305 moved"}}) {
    const std::string url = server.url(pathOf(status));
    EXPECT_EQ(askFor(client, get(url)), afterGet) << status;
    EXPECT_EQ(askFor(client, post(url, "body")), afterPost) << status;
  }
}

TEST_F(CurlHttpClientTest, aRedirectWithoutLocationIsAnAnswer) {
  LoopbackServer server(
      LoopbackServer::answering([](const ReceivedRequest&) { return httpAnswer(302, "nowhere"); }));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "302 nowhere");
}

TEST_F(CurlHttpClientTest, aRedirectLeadsToAnotherServerByName) {
  LoopbackServer target(LoopbackServer::answering(echo));
  LoopbackServer server(LoopbackServer::answering([&](const ReceivedRequest&) {
    return httpAnswer(301, "", {"Location: " + target.url("/there", "target.test")});
  }));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url("/", "server.test"))), "200 GET /there ");
}

TEST_F(CurlHttpClientTest, aRedirectToAnythingButHttpIsUnsupported) {
  std::string location;
  LoopbackServer server(LoopbackServer::answering(
      [&](const ReceivedRequest&) { return httpAnswer(302, "", {"Location: " + location}); }));
  CurlHttpClient client(surroundings());
  for (const char* url : {"file:///etc/hosts", "ftp://127.0.0.1/", "gopher://127.0.0.1/"}) {
    location = url;
    EXPECT_EQ(askFor(client, get(server.url())), "error: unsupported URL") << url;
  }
}

TEST_F(CurlHttpClientTest, theTwentyFirstRedirectIsTooMuch) {
  std::atomic<int> requests = 0;
  LoopbackServer server(LoopbackServer::answering([&](const ReceivedRequest&) {
    ++requests;
    return httpAnswer(302, "", {"Location: /again"});
  }));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: too many HTTP redirects");
  EXPECT_EQ(requests, 21);
}

TEST_F(CurlHttpClientTest, compressedAnswersAreAskedForAndDecoded) {
  const std::string hello(
      "\x1f\x8b\x08\0\0\0\0\0\x02\x03\xcb\x48\xcd\xc9\xc9\x07\0\x86\xa6\x10\x36\x05\0\0\0", 25);
  LoopbackServer server(LoopbackServer::answering([&](const ReceivedRequest& request) {
    const bool asked = request.header("Accept-Encoding").find("gzip") != std::string::npos;
    return asked ? httpAnswer(200, hello, {"Content-Encoding: gzip"}) : httpAnswer(200, "not asked for");
  }));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "200 hello");
}

TEST_F(CurlHttpClientTest, aBrokenCompressedAnswerIsAFailure) {
  LoopbackServer server(LoopbackServer::answering(
      [&](const ReceivedRequest&) { return httpAnswer(200, "no gzip at all", {"Content-Encoding: gzip"}); }));
  CurlHttpClient client(surroundings());
  EXPECT_FALSE(ask(client, get(server.url())).answer);
}

TEST_F(CurlHttpClientTest, cookiesAreSharedByAllRequests) {
  LoopbackServer server(LoopbackServer::answering([](const ReceivedRequest& request) {
    return httpAnswer(200, request.header("Cookie"), {"Set-Cookie: session=" + request.target.substr(1)});
  }));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url("/first"))), "200 ");
  EXPECT_EQ(askFor(client, post(server.url("/second"), "")), "200 session=first");
  EXPECT_EQ(askFor(client, get(server.url("/third"))), "200 session=second");
}

/// Sends a body of this many zeros.
void streamZeros(ServerConnection& connection, std::size_t size) {
  connection.readRequest();
  connection.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
  const std::string piece(std::size_t{1} << 20, '\0');
  for (std::size_t sent = 0; sent < size; sent += piece.size()) {
    if (!connection.write(std::string_view(piece).substr(0, size - sent))) return;
  }
}

constexpr std::size_t kLimit = std::size_t{64} * 1024 * 1024;

TEST_F(CurlHttpClientTest, aBodyOf64MiBIsAnAnswer) {
  LoopbackServer server([](ServerConnection& connection) { streamZeros(connection, kLimit); });
  CurlHttpClient client(surroundings());
  const HttpResult result = ask(client, get(server.url()));
  ASSERT_TRUE(result.answer) << result.error;
  EXPECT_EQ(result.answer->body.size(), kLimit);
}

TEST_F(CurlHttpClientTest, aBodyOver64MiBIsAFailure) {
  LoopbackServer server([](ServerConnection& connection) { streamZeros(connection, kLimit + 1); });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: The answer is larger than 64 MiB.");
}

TEST_F(CurlHttpClientTest, refusesHeadersWithoutEnd) {
  LoopbackServer server([](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\n");
    const std::string header = "X: " + std::string(1000, 'x') + "\r\n";
    while (connection.write(header)) {
    }
  });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: Failed writing header");
}

/// More than 64 MiB of zeros as gzip(1) would write them, in some 400 kB: one zero, then copies of it.
std::string compressedZeros() {
  std::string bytes("\x1f\x8b\x08\0\0\0\0\0\x02\x03", 10);
  std::uint32_t pending = 0;
  int pendingBits = 0;
  const auto put = [&](std::uint32_t bits, int count) {
    for (int i = count - 1; i >= 0; --i) {
      pending |= ((bits >> i) & 1U) << pendingBits;
      if (++pendingBits == 8) {
        bytes.push_back(static_cast<char>(pending));
        pending = 0;
        pendingBits = 0;
      }
    }
  };
  put(0b110, 3);       // the last block, with the fixed codes
  put(0b00110000, 8);  // a zero
  for (std::size_t size = 1; size <= kLimit; size += 258) {
    put(0b11000101, 8);  // 258 bytes ...
    put(0b00000, 5);     // ... from 1 byte before
  }
  put(0, 7);  // the end
  return bytes + std::string(9, '\0');
}

TEST_F(CurlHttpClientTest, aBodyIsMeasuredAsDecoded) {
  LoopbackServer server(LoopbackServer::answering(
      [](const ReceivedRequest&) { return httpAnswer(200, compressedZeros(), {"Content-Encoding: gzip"}); }));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "error: The answer is larger than 64 MiB.");
}

TEST_F(CurlHttpClientTest, theEnvironmentNamesNoProxy) {
  const std::array<const char*, 4> names{"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY"};
  for (const char* name : names) setenv(name, "http://127.0.0.1:1", 1);
  {
    LoopbackServer server(LoopbackServer::answering(echo));
    CurlHttpClient client(surroundings());
    EXPECT_EQ(askFor(client, get(server.url("/direct"))), "200 GET /direct ");
  }
  for (const char* name : names) unsetenv(name);
}

TEST_F(CurlHttpClientTest, theSystemsProxyIsUsedAndLooksTheTargetUp) {
  LoopbackServer proxy(LoopbackServer::answering(echo));
  std::vector<std::string> lookedUp;
  auto machine = surroundings();
  machine.resolver = [&](const std::string& host) {
    lookedUp.push_back(host);
    return LookupAnswer{{"127.0.0.1"}, ""};
  };
  machine.proxyFor = [&](const std::string& scheme, const std::string& host) {
    return scheme == "http" && host == "far.test"
               ? std::optional(ProxyServer{"http", "proxy.test", proxy.port()})
               : std::nullopt;
  };
  CurlHttpClient client(std::move(machine));
  EXPECT_EQ(askFor(client, get("http://far.test/page")), "200 GET http://far.test/page ");
  EXPECT_EQ(lookedUp, std::vector<std::string>{"proxy.test"});
}

TEST_F(CurlHttpClientTest, noChildInheritsAConnection) {
  LoopbackServer server(LoopbackServer::answering(echo));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askFor(client, get(server.url())), "200 GET / ");
  int connections = 0;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
    if (peer.sin_family != AF_INET || ntohs(peer.sin_port) != server.port()) continue;
    ++connections;
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
  EXPECT_EQ(connections, 1);
}

TEST_F(CurlHttpClientTest, aCompletionThatThrowsCostsALineInTheLog) {
  LoopbackServer server(LoopbackServer::answering(echo));
  const CapturedLog log;
  CurlHttpClient client(surroundings());
  client.send(get(server.url()), [](const HttpResult&) { throw std::runtime_error("no use for it"); });
  client.send(get(server.url()), [](const HttpResult&) { throw 1; });
  // The two may end in either order, but both before this one's answer has come.
  for (int i = 0; log.messages().size() < 2 && i < 100; ++i) ask(client, get(server.url()));
  const auto messages = log.messages();
  EXPECT_EQ(std::multiset<std::string>(messages.begin(), messages.end()),
            (std::multiset<std::string>{"Handling an HTTP answer failed: no use for it",
                                        "Handling an HTTP answer failed: unknown error"}));
}

TEST_F(CurlHttpClientTest, aCompletionMaySendTheNextRequest) {
  LoopbackServer server(LoopbackServer::answering(echo));
  CurlHttpClient client(surroundings());
  std::promise<std::string> second;
  client.send(get(server.url("/1")), [&](const HttpResult&) {
    client.send(get(server.url("/2")), [&](const HttpResult& result) { second.set_value(summary(result)); });
  });
  EXPECT_EQ(second.get_future().get(), "200 GET /2 ");
}

TEST_F(CurlHttpClientTest, requestsOfManyThreadsAllEnd) {
  LoopbackServer server(LoopbackServer::answering(echo));
  CurlHttpClient client(surroundings());
  constexpr int kThreads = 8;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  std::atomic<int> answers = 0;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 25; ++i) {
        const std::string path = pathOf(thread) + pathOf(i);
        if (askFor(client, get(server.url(path, "server.test"))) == "200 GET " + path + " ") ++answers;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(answers, 200);
}

TEST_F(CurlHttpClientTest, anEndingClientDropsWhatIsUnderWay) {
  std::promise<void> arrived;
  LoopbackServer server([&](ServerConnection& connection) {
    connection.readRequest();
    arrived.set_value();
    connection.hang();
  });
  std::atomic<int> completions = 0;
  {
    CurlHttpClient client(surroundings());
    client.send(get(server.url()), [&](const HttpResult&) { ++completions; });
    arrived.get_future().wait();
  }
  EXPECT_EQ(completions, 0);
}

/// What the thread's status file says under a name, "" without such a file.
std::string statusOf(const std::string& taskDirectory, const std::string& name) {
  std::ifstream file(taskDirectory + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.compare(0, name.size() + 1, name + ":") == 0) return line.substr(name.size() + 2);
  }
  return "";
}

TEST_F(CurlHttpClientTest, anIdleClientDoesNothing) {
  LoopbackServer server(LoopbackServer::answering(echo));
  CurlHttpClient idle(surroundings());
  std::promise<std::string> task;
  idle.send(get(server.url("/", "server.test")), [&](const HttpResult&) {
    std::array<char, 64> link{};
    const auto length = readlink("/proc/thread-self", link.data(), link.size());
    task.set_value(length > 0 ? "/proc/" + std::string(link.data(), static_cast<std::size_t>(length)) : "");
  });
  const std::string directory = task.get_future().get();
  if (directory.empty()) GTEST_SKIP() << "no /proc here";
  while (statusOf(directory, "State")[0] != 'S') std::this_thread::yield();
  const std::string before = statusOf(directory, "voluntary_ctxt_switches");

  CurlHttpClient busy(surroundings());
  for (int i = 0; i < 100; ++i) EXPECT_EQ(askFor(busy, get(server.url())), "200 GET / ");

  EXPECT_NE(before, "");
  EXPECT_EQ(statusOf(directory, "voluntary_ctxt_switches"), before);
}

}  // namespace
}  // namespace msp::test
