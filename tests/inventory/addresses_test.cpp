#include "inventory/addresses.h"

#include <gtest/gtest.h>

#include "support/fake_http_client.h"
#include "support/fake_task_runner.h"

namespace msp {
namespace {

using test::FakeHttpClient;
using test::FakeTaskRunner;

constexpr const char* kAskEn0 = "ipconfig getifaddr en0";
constexpr const char* kAskEn1 = "ipconfig getifaddr en1";
constexpr const char* kAskEn7 = "ipconfig getifaddr en7";

TEST(LocalAddress, theActiveInterfaceIsAskedFirstThenEn0ThenEn1) {
  using Active = std::optional<std::string>;
  struct Case {
    const char* name;
    Active active;
    std::map<std::string, std::string> answers;
    std::vector<std::string> asked;
    std::string address;
    Active activeAfterwards;
  };
  const Case cases[] = {
      {"at first en0 answers",
       {},
       {{kAskEn0, "10.0.0.1"}, {kAskEn1, "10.0.0.2"}},
       {kAskEn0},
       "10.0.0.1",
       "en0"},
      {"en1 is asked when en0 has no address",
       {},
       {{kAskEn1, "10.0.0.2"}},
       {kAskEn0, kAskEn1},
       "10.0.0.2",
       "en1"},
      {"without any address the report keeps its own", {}, {}, {kAskEn0, kAskEn1}, "192.0.2.1", {}},
      {"the active interface answers alone",
       "en1",
       {{kAskEn0, "10.0.0.1"}, {kAskEn1, "10.0.0.2"}},
       {kAskEn1},
       "10.0.0.2",
       "en1"},
      {"any interface may be the active one", "en7", {{kAskEn7, "10.0.0.7"}}, {kAskEn7}, "10.0.0.7", "en7"},
      {"when the active one is silent en0 takes over",
       "en1",
       {{kAskEn0, "10.0.0.1"}},
       {kAskEn1, kAskEn0},
       "10.0.0.1",
       "en0"},
      {"a silent en0 is asked twice before en1",
       "en0",
       {{kAskEn1, "10.0.0.2"}},
       {kAskEn0, kAskEn0, kAskEn1},
       "10.0.0.2",
       "en1"},
      {"the active interface is never forgotten", "en1", {}, {kAskEn1, kAskEn0, kAskEn1}, "192.0.2.1", "en1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeTaskRunner runner;
    for (const auto& [commandLine, output] : c.answers) runner.answer(commandLine, output);
    GatheredData report;
    report.ipv4_address = "192.0.2.1";
    Active active = c.active;
    collectLocalAddress(report, active, runner);
    EXPECT_EQ(runner.commandLines(), c.asked);
    EXPECT_EQ(report.ipv4_address, c.address);
    EXPECT_EQ(active, c.activeAfterwards);
  }
}

TEST(WanAddress, aLookUpIsOnePlainGetWithoutALimitOnItsWholeTime) {
  FakeHttpClient http;
  WanAddress address(http);
  address.startLookup();
  ASSERT_EQ(http.requests().size(), 1U);
  const HttpRequest request = http.requests().front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.url, "https://api.ipify.org");
  EXPECT_TRUE(request.headers.empty());
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(request.idleLimit, std::chrono::seconds(60));
  EXPECT_EQ(request.totalLimit, std::nullopt);
  EXPECT_FALSE(request.waitsForConnectivity);
}

TEST(WanAddress, theAnswersBodyIsKeptAsItCame) {
  const HttpResult failed{std::nullopt, "no route to host"};
  const auto answered = [](int status, std::string body) {
    return HttpResult{HttpAnswer{status, std::move(body)}, ""};
  };
  struct Case {
    const char* name;
    HttpResult result;
    std::string expected;
  };
  const Case cases[] = {
      {"an address", answered(200, "203.0.113.9"), "203.0.113.9"},
      {"white space is not trimmed", answered(200, " 203.0.113.9\n"), " 203.0.113.9\n"},
      {"the status is not looked at", answered(503, "Service Unavailable"), "Service Unavailable"},
      {"any text counts", answered(200, "<html>José</html>"), "<html>José</html>"},
      {"an empty body is an answer too", answered(200, ""), ""},
      {"a body that is not UTF-8", answered(200, "203.0.113.\xFF"), "Unknown WAN IP"},
      {"a failed request changes nothing", failed, "192.0.2.1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeHttpClient http;
    WanAddress address(http);
    address.startLookup();
    http.answer(0, 200, "192.0.2.1");
    address.startLookup();
    http.complete(1, c.result);
    EXPECT_EQ(address.current(), c.expected);
  }
}

TEST(WanAddress, nothingIsKnownBeforeTheFirstAnswer) {
  FakeHttpClient http;
  WanAddress address(http);
  EXPECT_EQ(address.current(), "");
  address.startLookup();
  EXPECT_EQ(address.current(), "");
}

TEST(WanAddress, atMost64LookUpsAreUnderWay) {
  FakeHttpClient http;
  WanAddress address(http);
  for (int i = 0; i < 100; ++i) address.startLookup();
  EXPECT_EQ(http.requests().size(), 64U);

  http.fail(10, "timed out");
  http.answer(20, 200, "203.0.113.9");
  for (int i = 0; i < 100; ++i) address.startLookup();
  EXPECT_EQ(http.requests().size(), 66U) << "an ended look-up, failed or not, makes room for another one";
}

TEST(WanAddress, anAnswerAfterItsEndIsHarmless) {
  FakeHttpClient http;
  {
    WanAddress address(http);
    address.startLookup();
  }
  http.answer(0, 200, "203.0.113.9");
}

TEST(WanAddressDeathTest, aServiceThatIsNoUrlEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  FakeHttpClient http;
  EXPECT_DEATH(WanAddress(http, "not a URL").startLookup(), "^Bad URL\n$");
}

TEST(WanAddress, anAddressCountsForLessThanAnHour) {
  using std::chrono::hours;
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now();
  struct Case {
    const char* name;
    std::optional<std::chrono::system_clock::time_point> lastUpdate;
    std::string address;
    bool expected;
  };
  const Case cases[] = {
      {"never looked up", {}, "203.0.113.9", false},
      {"looked up just now", now, "203.0.113.9", true},
      {"looked up just now without an address", now, "", false},
      {"nearly an hour ago", now - hours(1) + milliseconds(1), "203.0.113.9", true},
      {"an hour ago", now - hours(1), "203.0.113.9", false},
      {"in the future, after the clock was set back", now + hours(5), "203.0.113.9", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(isWanAddressRecent(c.lastUpdate, c.address, now), c.expected) << c.name;
  }
}

}  // namespace
}  // namespace msp
