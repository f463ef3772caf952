#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <string_view>

#include "server/protocol.h"

namespace msp::lab {
namespace {

TEST(LabProtocol, whatIsWrongWithARequestIsSaid) {
  struct Case {
    std::string_view name, body, task, problem;
  };
  constexpr Case kCases[] = {
      {"a registration with its name is right",
       R"({"api_action":"msp","api_version":1,"task":"create","name":"A"})", "create", ""},
      {"the order of the keys does not matter",
       R"({"name":"","task":"create","api_version":1,"api_action":"msp"})", "create", ""},
      {"a test needs nothing more", R"({"api_action":"msp","api_version":1,"task":"test"})", "test", ""},
      {"a check-in with an identity and a report is right",
       R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"u","data":"{}"})", "checkin", ""},
      {"no bytes at all", "", "", "the body is not a JSON object"},
      {"a list", "[1]", "", "the body is not a JSON object"},
      {"half an object", R"({"task":"test")", "", "the body is not a JSON object"},
      {"bytes that are no UTF-8", "{\"task\":\"\xff\"}", "", "the body is not a JSON object"},
      {"another action", R"({"api_action":"MSP","api_version":1,"task":"test"})", "test",
       "api_action is not \"msp\""},
      {"an action that is no text", R"({"api_action":1,"api_version":1,"task":"test"})", "test",
       "api_action is not \"msp\""},
      {"the version as text", R"({"api_action":"msp","api_version":"1","task":"test"})", "test",
       "api_version is not the number 1"},
      {"the version as a fraction", R"({"api_action":"msp","api_version":1.0,"task":"test"})", "test",
       "api_version is not the number 1"},
      {"no task", R"({"api_action":"msp","api_version":1})", "", "there is no task"},
      {"a task that is no text", R"({"api_action":"msp","api_version":1,"task":1})", "", "there is no task"},
      {"an unknown task", R"({"api_action":"msp","api_version":1,"task":"Test"})", "Test",
       "unknown task Test"},
      {"a registration without a name", R"({"api_action":"msp","api_version":1,"task":"create"})", "create",
       "there is no name"},
      {"a check-in without an identity",
       R"({"api_action":"msp","api_version":1,"task":"checkin","data":"{}"})", "checkin", "there is no uuid"},
      {"a check-in without a report", R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"u"})",
       "checkin", "there is no data"},
      {"a report that is nested instead of text",
       R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"u","data":{}})", "checkin",
       "there is no data"},
      {"a report that is empty text",
       R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"u","data":""})", "checkin",
       "data is not the text of a JSON object"},
      {"a report that is a list",
       R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"u","data":"[]"})", "checkin",
       "data is not the text of a JSON object"},
  };
  for (const Case& row : kCases) {
    const Message message = parseMessage(row.body);
    EXPECT_EQ(message.task, row.task) << row.name;
    EXPECT_EQ(message.problem, row.problem) << row.name;
  }
}

TEST(LabProtocol, objectsAreReadUpToADepthOf512) {
  const auto nested = [](std::size_t lists) {
    return R"({"a":)" + std::string(lists, '[') + std::string(lists, ']') + "}";
  };
  EXPECT_TRUE(parseObject(nested(511)).is_object());
  EXPECT_TRUE(parseObject(nested(512)).is_null());
  EXPECT_TRUE(parseObject(nested(1'000'000)).is_null());
  EXPECT_TRUE(parseObject(std::string(1'000'000, '[')).is_null());
  const Json brackets = {{"a", std::string(1000, '[') + "\"\\"}, {"b", 1}};
  EXPECT_EQ(parseObject(compact(brackets)), brackets) << "brackets within a text are no nesting";
}

TEST(LabProtocol, aReportIsParsedASecondTime) {
  const Message message = parseMessage(
      R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"u","data":"{\"name\":\"B\\u00fcro\"}"})");
  EXPECT_EQ(message.report, Json({{"name", "Büro"}}));
}

TEST(LabProtocol, jobResultsAreTakenFromAReportWhateverItHolds) {
  struct Case {
    std::string_view name, report;
    std::vector<Json> expected;
  };
  const Case cases[] = {
      {"no results", R"({"job_results":[]})", {}},
      {"in their order", R"({"job_results":[{"id":2},{"id":1}]})", {Json{{"id", 2}}, Json{{"id", 1}}}},
      {"elements that are no objects too", R"({"job_results":[7]})", {Json(7)}},
      {"a text is no list", R"({"job_results":"none"})", {}},
      {"no such key", "{}", {}},
      {"no report", "", {}},
  };
  for (const Case& row : cases) {
    Message message;
    message.report = Json::parse(row.report, nullptr, false);
    EXPECT_EQ(jobResults(message), row.expected) << row.name;
  }
}

TEST(LabProtocol, eachTaskGetsItsAnswer) {
  ProtocolState state;
  const auto answer = [&state](std::string_view task, std::string problem = "") {
    Message message;
    message.task = task;
    message.problem = std::move(problem);
    const ServerAnswer given = answerTo(message, state, "made-up");
    return std::to_string(given.status) + " " + given.body;
  };
  EXPECT_EQ(answer("create"), R"(200 {"success":1,"uuid":"made-up","id":"1"})");
  EXPECT_EQ(answer("create"), R"(200 {"success":1,"uuid":"made-up","id":"2"})");
  EXPECT_EQ(answer("test"), R"(200 {"test_success":1})");
  EXPECT_EQ(answer("checkin"), R"(200 {"success":1,"jobs":[]})");

  state.queuedJobs = {Json{{"id", "1"}}, Json(nullptr)};
  state.checkInInterval = 2.5;
  EXPECT_EQ(answer("checkin", "there is no uuid"), R"(400 {"error":"there is no uuid"})");
  EXPECT_EQ(answer("test"), R"(200 {"test_success":1})");
  EXPECT_EQ(answer("checkin"), R"(200 {"success":1,"jobs":[{"id":"1"},null],"checkin_interval":2.5})");
  EXPECT_EQ(answer("checkin"), R"(200 {"success":1,"jobs":[],"checkin_interval":2.5})");
}

TEST(LabProtocol, aJobTravelsWithItsIdAndArgumentsAsText) {
  struct Case {
    std::string_view name;
    Json arguments;
    std::string_view expected;
  };
  const Case cases[] = {
      {"no arguments, no key", nullptr, R"({"id":"7","type":"t"})"},
      {"an object becomes its text",
       {{"pid", "12"}, {"n", 1}},
       R"({"id":"7","type":"t","arguments":"{\"pid\":\"12\",\"n\":1}"})"},
      {"an empty object is still an object", Json::object(), R"({"id":"7","type":"t","arguments":"{}"})"},
      {"a text goes as it is", "not JSON", R"({"id":"7","type":"t","arguments":"not JSON"})"},
  };
  for (const Case& row : cases) EXPECT_EQ(compact(makeJob(7, "t", row.arguments)), row.expected) << row.name;
}

TEST(LabProtocol, identitiesAreWellFormedAndDiffer) {
  const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = makeUuid();
    EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
    EXPECT_TRUE(seen.insert(uuid).second) << uuid;
  }
}

}  // namespace
}  // namespace msp::lab
