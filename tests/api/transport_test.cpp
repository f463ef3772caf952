#include "api/transport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/captured_log.h"
#include "support/fake_http_client.h"

namespace msp {
namespace {

class TransportTest : public testing::Test {
 protected:
  /// Posts the body; the answer lands in `answer`, and `calls` counts.
  void post(const Json& body, const std::string& url = "http://127.0.0.1/api") {
    transport.post(body, url, [this](std::optional<Json> received) {
      ++calls;
      answer = std::move(received);
    });
  }

  const test::CapturedLog log;
  test::FakeHttpClient http;
  Transport transport{http};
  int calls = 0;
  std::optional<Json> answer;
};

TEST_F(TransportTest, sendsOneObjectAndItsLimits) {
  post({{"task", "test"}, {"api_version", 1}});
  ASSERT_EQ(http.requests().size(), 1U);
  const HttpRequest request = http.requests()[0];
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "http://127.0.0.1/api");
  EXPECT_EQ(request.headers, std::vector<std::string>{"Content-Type: application/json"});
  EXPECT_EQ(request.body, R"({"task":"test","api_version":1})");
  EXPECT_EQ(request.idleLimit, std::chrono::seconds(15));
  EXPECT_EQ(request.totalLimit, std::chrono::seconds(60));
  EXPECT_TRUE(request.waitsForConnectivity);
  EXPECT_EQ(calls, 0);
}

TEST_F(TransportTest, handsOverWhatTheServerAnswers) {
  post({{"task", "test"}});
  http.answer(0, 200, R"({"test_success":1})");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(answer, Json({{"test_success", 1}}));
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(TransportTest, handsOverAnEmptyDictionaryForWhatIsNoObject) {
  struct Case {
    const char* body;
    const char* printed;
  };
  const Case cases[] = {
      {"",
       "Error parsing JSON: parse error at line 1, column 1: syntax error while parsing value - unexpected "
       "end of "
       "input; expected '[', '{', or a literal\n"},
      {"[]", "Error converting JSON to dictionary\n"},
  };
  std::size_t number = 0;
  for (const Case& c : cases) {
    answer = std::nullopt;
    post({{"task", "test"}});
    testing::internal::CaptureStdout();
    http.answer(number++, 200, c.body);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed) << c.body;
    EXPECT_EQ(answer, Json::object()) << c.body;
  }
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(TransportTest, logsEveryOtherStatusAsAnUnknownError) {
  std::size_t number = 0;
  for (const int status : {201, 204, 301, 404, 500}) {
    const test::CapturedLog own;
    answer = Json::object();
    post({{"task", "checkin"}});
    http.answer(number++, status, R"({"success":1})");
    EXPECT_EQ(answer, std::nullopt) << status;
    EXPECT_EQ(own.messages(), (std::vector<std::string>{"POST failed: unknown error", "Task: checkin"}))
        << status;
  }
  EXPECT_EQ(calls, 5);
}

TEST_F(TransportTest, logsWhyARequestFailedAndItsTask) {
  post({{"task", "create"}});
  http.fail(0, "The request timed out.");
  post({{"task", 5}});
  http.fail(1, "unsupported URL");
  EXPECT_EQ(answer, std::nullopt);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"POST failed: The request timed out.", "Task: create",
                                                      "POST failed: unsupported URL", "Task: unknown task"}));
}

TEST_F(TransportTest, vanishesWithoutAMessageWhenTheAddressIsNoUrl) {
  testing::internal::CaptureStdout();
  for (const char* url : {"", "http://a b", "http://a\n"}) post({{"task", "test"}}, url);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(http.requests().empty());
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(TransportTest, printsABodyThatCannotBeWrittenAndAnswersNobody) {
  testing::internal::CaptureStdout();
  post({{"task", "create"}, {"name", "\xFF"}});
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error creating JSON: invalid UTF-8 byte at index 0: 0xFF\n");
  EXPECT_TRUE(http.requests().empty());
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(log.messages().empty());
}

}  // namespace
}  // namespace msp
