#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/curl_http_client.h"
#include "support/http_calls.h"
#include "support/loopback_server.h"

// What the client does about time: limits, and servers, look-ups and networks that keep it waiting.
namespace msp::test {
namespace {

using Clock = std::chrono::steady_clock;

class CurlHttpClientLimitsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { initializeHttp(); }
};

constexpr const char* kTimedOut = "error: The request timed out.";
/// How much later than asked for something may happen on a machine that is busy with other tests.
constexpr auto kSlack = 3s;

HttpRequest limited(HttpRequest request, std::chrono::milliseconds idle, std::chrono::milliseconds total) {
  request.idleLimit = idle;
  request.totalLimit = total;
  return request;
}

/// Asks, and checks that the answer takes at least that long and not much longer.
std::string askTaking(std::chrono::milliseconds time, HttpClient& client, HttpRequest request) {
  const auto begin = Clock::now();
  std::string text = askFor(client, std::move(request));
  const auto taken = Clock::now() - begin;
  EXPECT_GE(taken, time);
  EXPECT_LT(taken, time + kSlack);
  return text;
}

std::string ok(const ReceivedRequest& /*request*/) { return httpAnswer(200, "ok"); }

/// Reads a request and never answers.
void readAndHang(ServerConnection& connection) {
  connection.readRequest();
  connection.hang();
}

/// A resolver whose look-ups of names that begin with "hang" last until the gate opens.
class Gate {
 public:
  Gate() = default;
  ~Gate() { open(); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  void open() {
    if (!std::exchange(isOpen_, true)) promise_.set_value();
  }
  [[nodiscard]] Resolver resolver() const {
    return [opened = opened_](const std::string& host) {
      if (host.compare(0, 4, "hang") == 0) opened.wait();
      return LookupAnswer{{"127.0.0.1"}, ""};
    };
  }

 private:
  bool isOpen_ = false;
  std::promise<void> promise_;
  std::shared_future<void> opened_ = promise_.get_future().share();
};

TEST_F(CurlHttpClientLimitsTest, aServerThatSaysNothingEndsTheRequestAtItsIdleLimit) {
  LoopbackServer server(readAndHang);
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askTaking(300ms, client, limited(get(server.url()), 300ms, 60s)), kTimedOut);
  EXPECT_EQ(askTaking(300ms, client, limited(post(server.url(), "body"), 300ms, 60s)), kTimedOut);
}

TEST_F(CurlHttpClientLimitsTest, theIdleLimitHoldsWithoutATotalLimit) {
  LoopbackServer server(readAndHang);
  CurlHttpClient client(surroundings());
  auto request = get(server.url());
  request.idleLimit = 200ms;
  EXPECT_EQ(askTaking(200ms, client, std::move(request)), kTimedOut);
}

TEST_F(CurlHttpClientLimitsTest, limitsBeyondTheClocksRangeAreNone) {
  LoopbackServer server(LoopbackServer::answering(ok));
  CurlHttpClient client(surroundings());
  const auto longest = std::chrono::milliseconds::max();
  EXPECT_EQ(askFor(client, limited(get(server.url()), longest, longest)), "200 ok");
}

TEST_F(CurlHttpClientLimitsTest, aLimitOfNothingEndsTheRequestAtOnce) {
  LoopbackServer server(readAndHang);
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askTaking(0ms, client, limited(get(server.url()), 0ms, 60s)), kTimedOut);
  EXPECT_EQ(askTaking(0ms, client, limited(get(server.url()), 60s, 0ms)), kTimedOut);
}

TEST_F(CurlHttpClientLimitsTest, aServerThatStopsInTheMiddleOfItsAnswerEndsTheRequest) {
  LoopbackServer server([](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    connection.hang();
  });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askTaking(300ms, client, limited(get(server.url()), 300ms, 60s)), kTimedOut);
}

/// Answers with this many bytes, one every 50 ms.
LoopbackServer::Handler trickling(int bytes) {
  return [bytes](ServerConnection& connection) {
    connection.readRequest();
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(bytes) + "\r\n\r\n");
    for (int i = 0; i < bytes; ++i) {
      connection.linger(50ms);
      if (!connection.write("x")) return;
    }
  };
}

TEST_F(CurlHttpClientLimitsTest, aSlowAnswerIsNotIdle) {
  LoopbackServer server(trickling(40));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askTaking(2000ms, client, limited(get(server.url()), 1000ms, 60s)),
            "200 " + std::string(40, 'x'));
}

TEST_F(CurlHttpClientLimitsTest, aSlowAnswerEndsAtTheTotalLimit) {
  LoopbackServer server(trickling(100'000));
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askTaking(1500ms, client, limited(get(server.url()), 1000ms, 1500ms)), kTimedOut);
}

TEST_F(CurlHttpClientLimitsTest, aBodyThatIsTakenSlowlyIsNotIdle) {
  constexpr int kPiece = 64 * 1024;
  LoopbackServer server(
      [](ServerConnection& connection) {
        while (connection.receive(kPiece) && connection.unreadBytes() < 40 * kPiece) connection.linger(50ms);
        connection.readRequest();
        connection.write(httpAnswer(200, "taken"));
      },
      kPiece);
  CurlHttpClient client(surroundings());
  const std::string body(std::size_t{120} * kPiece, 'b');
  const auto begin = Clock::now();
  EXPECT_EQ(askFor(client, limited(post(server.url(), body), 1000ms, 60s)), "200 taken");
  EXPECT_GT(Clock::now() - begin, 1000ms);
}

TEST_F(CurlHttpClientLimitsTest, theTotalLimitRunsOnOverRedirects) {
  LoopbackServer server([](ServerConnection& connection) {
    while (connection.readRequest()) {
      connection.linger(100ms);
      connection.write(httpAnswer(302, "", {"Location: /again"}));
    }
  });
  CurlHttpClient client(surroundings());
  EXPECT_EQ(askTaking(500ms, client, limited(get(server.url()), 10s, 500ms)), kTimedOut);
}

TEST_F(CurlHttpClientLimitsTest, aServerThatHangsDelaysNoOtherRequest) {
  std::promise<void> hanging;
  LoopbackServer server([&](ServerConnection& connection) {
    while (const auto request = connection.readRequest()) {
      if (request->target == "/hang") {
        hanging.set_value();
        connection.hang();
        return;
      }
      connection.write(httpAnswer(200, "ok"));
    }
  });
  CurlHttpClient client(surroundings());
  auto hung = start(client, get(server.url("/hang")));
  hanging.get_future().wait();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(askTaking(0ms, client, get(server.url())), "200 ok");
  EXPECT_EQ(hung.wait_for(0s), std::future_status::timeout);
}

TEST_F(CurlHttpClientLimitsTest, aNameLookupThatHangsDelaysNoOtherRequestAndEndsOnTime) {
  LoopbackServer server(LoopbackServer::answering(ok));
  Gate gate;
  auto machine = surroundings();
  machine.resolver = gate.resolver();
  CurlHttpClient client(std::move(machine));
  auto hung = start(client, get(server.url("/", "hang.test")));
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(askTaking(0ms, client, get(server.url("/", "server.test"))), "200 ok");
  }
  EXPECT_EQ(askTaking(300ms, client, limited(get(server.url("/", "hang.test")), 300ms, 60s)), kTimedOut);
  EXPECT_EQ(askTaking(300ms, client, limited(get(server.url("/", "hang.test")), 60s, 300ms)), kTimedOut);
  EXPECT_EQ(hung.wait_for(0s), std::future_status::timeout);
  gate.open();
  EXPECT_EQ(summary(resultOf(std::move(hung))), "200 ok");
}

TEST_F(CurlHttpClientLimitsTest, aLookupMayOutliveItsClient) {
  Gate gate;
  auto machine = surroundings();
  machine.resolver = gate.resolver();
  std::atomic<int> completions = 0;
  {
    CurlHttpClient client(std::move(machine));
    client.send(get("http://hang.test/"), [&](const HttpResult&) { ++completions; });
    EXPECT_EQ(askFor(client, get("nothing")), "error: unsupported URL");
  }
  gate.open();
  EXPECT_EQ(completions, 0);
}

TEST_F(CurlHttpClientLimitsTest, everyRequestGoesWhereItsOwnLookupLeads) {
  LoopbackServer server([](ServerConnection& connection) {
    if (connection.readRequest()) connection.write(httpAnswer(200, "ok", {"Connection: close"}));
  });
  std::atomic<int> lookups = 0;
  auto machine = surroundings();
  machine.resolver = [&](const std::string&) {
    // Connecting by TCP to the broadcast address fails before anything is sent.
    return LookupAnswer{{lookups++ == 1 ? "255.255.255.255" : "127.0.0.1"}, ""};
  };
  CurlHttpClient client(std::move(machine));
  EXPECT_EQ(askFor(client, get(server.url("/", "server.test"))), "200 ok");
  EXPECT_FALSE(ask(client, get(server.url("/", "server.test"))).answer);
  EXPECT_EQ(askFor(client, get(server.url("/", "server.test"))), "200 ok");
  EXPECT_EQ(lookups, 3);
}

TEST_F(CurlHttpClientLimitsTest, anAddressThatRefusesLeadsToTheNext) {
  LoopbackServer server(LoopbackServer::answering(ok));
  auto machine = surroundings();
  machine.resolver = [](const std::string&) { return LookupAnswer{{"::1", "127.0.0.1"}, ""}; };
  CurlHttpClient client(std::move(machine));
  EXPECT_EQ(askFor(client, get(server.url("/", "server.test"))), "200 ok");
}

TEST_F(CurlHttpClientLimitsTest, namesInAnySpellingAreLookedUpHereOnly) {
  LoopbackServer server(LoopbackServer::answering(ok));
  CurlHttpClient client(surroundings());
  for (const char* host :
       {"server.test.", "SERVER.Test", "localhost", "sub.localhost", "user:pw@server.test"}) {
    EXPECT_EQ(askFor(client, get(server.url("/", host))), "200 ok") << host;
  }
}

TEST_F(CurlHttpClientLimitsTest, anUnknownHostOnAWorkingNetworkFailsAtOnce) {
  auto machine = surroundings();
  machine.resolver = [](const std::string&) { return LookupAnswer{{}, "unknown name"}; };
  CurlHttpClient client(std::move(machine));
  auto request = limited(get("http://nowhere.test/"), 15s, 60s);
  request.waitsForConnectivity = true;
  EXPECT_EQ(askTaking(0ms, client, std::move(request)),
            "error: Could not resolve host: nowhere.test (unknown name)");
}

/// A machine without network: names have no address, or none that can be reached.
HttpSurroundings disconnected(std::atomic<int>& attempts, LookupAnswer answer) {
  auto machine = surroundings();
  machine.hasUsableNetwork = [] { return false; };
  machine.resolver = [&attempts, answer = std::move(answer)](const std::string&) {
    ++attempts;
    return answer;
  };
  return machine;
}

TEST_F(CurlHttpClientLimitsTest, withoutNetworkARequestThatDoesNotWaitFailsAtOnce) {
  std::atomic<int> attempts = 0;
  CurlHttpClient client(disconnected(attempts, {{}, "no network"}));
  EXPECT_EQ(askTaking(0ms, client, limited(get("http://server.test/"), 15s, 60s)),
            "error: Could not resolve host: server.test (no network)");
  EXPECT_EQ(attempts, 1);
}

TEST_F(CurlHttpClientLimitsTest, withoutNetworkAttemptsAreRepeatedUntilTheTotalLimit) {
  for (const LookupAnswer& answer : {LookupAnswer{{}, "no network"}, LookupAnswer{{"255.255.255.255"}, ""}}) {
    std::atomic<int> attempts = 0;
    CurlHttpClient client(disconnected(attempts, answer));
    auto request = limited(get("http://server.test/"), 15s, 2000ms);
    request.waitsForConnectivity = true;
    EXPECT_EQ(askTaking(2000ms, client, std::move(request)), kTimedOut) << answer.error;
    EXPECT_GE(attempts, 2) << answer.error;
  }
}

TEST_F(CurlHttpClientLimitsTest, withoutNetworkALookupThatHangsEndsOnlyItsAttempt) {
  Gate gate;
  auto machine = surroundings();
  machine.resolver = gate.resolver();
  machine.hasUsableNetwork = [] { return false; };
  CurlHttpClient client(std::move(machine));
  auto request = limited(get("http://hang.test/"), 200ms, 1500ms);
  request.waitsForConnectivity = true;
  EXPECT_EQ(askTaking(1500ms, client, std::move(request)), kTimedOut);
}

TEST_F(CurlHttpClientLimitsTest, aServerThatHangsIsNotTriedAgainWithoutNetwork) {
  LoopbackServer server(readAndHang);
  auto machine = surroundings();
  machine.hasUsableNetwork = [] { return false; };
  CurlHttpClient client(std::move(machine));
  auto request = limited(post(server.url(), "once"), 300ms, 60s);
  request.waitsForConnectivity = true;
  EXPECT_EQ(askTaking(300ms, client, std::move(request)), kTimedOut);
  EXPECT_EQ(server.acceptedConnections(), 1);
}

TEST_F(CurlHttpClientLimitsTest, aRequestThatWaitsGoesOutWhenTheNetworkAppears) {
  LoopbackServer server(LoopbackServer::answering(
      [](const ReceivedRequest& request) { return httpAnswer(200, request.body); }));
  std::atomic<bool> connected = false;
  auto machine = surroundings();
  machine.hasUsableNetwork = [&] { return connected.exchange(true); };
  machine.resolver = [&](const std::string&) {
    return connected ? LookupAnswer{{"127.0.0.1"}, ""} : LookupAnswer{{}, "no network"};
  };
  CurlHttpClient client(std::move(machine));
  auto request = limited(post(server.url("/", "server.test"), "body"), 15s, 60s);
  request.waitsForConnectivity = true;
  EXPECT_EQ(askTaking(1000ms, client, std::move(request)), "200 body");
}

}  // namespace
}  // namespace msp::test
