#include "api/answers.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

std::optional<Json> answer(const char* text) {
  return text == nullptr ? std::nullopt : std::optional(JSONUtilities::jsonToDictionary(text));
}

TEST(RegistrationAnswer, needsSuccessAsTheNumberOne) {
  struct Case {
    const char* name;
    const char* text;
    std::optional<std::pair<std::string, std::string>> expected;  // uuid and id
  };
  const Case cases[] = {
      {"a whole answer", R"({"success":1,"uuid":"4F2A","id":"17"})", {{"4F2A", "17"}}},
      {"a number as id counts as none", R"({"success":1,"uuid":"4F2A","id":42})", {{"4F2A", ""}}},
      {"a number as uuid counts as none", R"({"success":1,"uuid":7,"id":"17"})", {{"", "17"}}},
      {"neither of them", R"({"success":1})", {{"", ""}}},
      {"an integral fraction is an integer", R"({"success":1.0})", {{"", ""}}},
      {"no answer", nullptr, std::nullopt},
      {"an empty answer", "{}", std::nullopt},
      {"success 0", R"({"success":0,"uuid":"4F2A","id":"17"})", std::nullopt},
      {"success as a text", R"({"success":"1","uuid":"4F2A","id":"17"})", std::nullopt},
      {"success as a boolean", R"({"success":true,"uuid":"4F2A","id":"17"})", std::nullopt},
      {"success missing", R"({"uuid":"4F2A","id":"17"})", std::nullopt},
  };
  for (const Case& c : cases) {
    const auto read = readRegistrationAnswer(answer(c.text));
    ASSERT_EQ(read.has_value(), c.expected.has_value()) << c.name;
    if (!read) continue;
    EXPECT_EQ(std::pair(read->uuid, read->id), *c.expected) << c.name;
  }
}

TEST(TestAnswer, passesWithTheNumberOneAlone) {
  struct Case {
    const char* text;
    bool passed;
  };
  const Case cases[] = {
      {R"({"test_success":1})", true},
      {R"({"test_success":0})", false},
      {R"({"test_success":"1"})", false},
      {R"({"test_success":true})", false},
      {R"({"success":1})", false},
      {"{}", false},
      {nullptr, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(readTestAnswer(answer(c.text)), c.passed) << (c.text == nullptr ? "no answer" : c.text);
  }
}

TEST(CheckInAnswer, readsJobsAndIntervalLeniently) {
  struct Case {
    const char* name;
    const char* text;
    bool counts;
    std::size_t jobs;
    std::optional<double> interval;
  };
  const Case cases[] = {
      {"success alone", R"({"success":1})", true, 0, std::nullopt},
      {"jobs", R"({"success":1,"jobs":[{"id":"1"},{"id":"2"}]})", true, 2, std::nullopt},
      {"one job that is a number: none of them counts", R"({"success":1,"jobs":[{"id":"1"},5]})", true, 0,
       std::nullopt},
      {"one job that is null: none of them counts", R"({"success":1,"jobs":[null]})", true, 0, std::nullopt},
      {"jobs as an object", R"({"success":1,"jobs":{"id":"1"}})", true, 0, std::nullopt},
      {"an interval with a fraction", R"({"success":1,"checkin_interval":120.5})", true, 0, 120.5},
      {"an interval of 0", R"({"success":1,"checkin_interval":0})", true, 0, 0.0},
      {"a negative interval", R"({"success":1,"checkin_interval":-1})", true, 0, -1.0},
      {"a huge interval", R"({"success":1,"checkin_interval":1e308})", true, 0, 1e308},
      {"an interval as a text", R"({"success":1,"checkin_interval":"120"})", true, 0, std::nullopt},
      {"an interval as a boolean", R"({"success":1,"checkin_interval":true})", true, 0, std::nullopt},
      {"no success", R"({"success":0,"jobs":[{"id":"1"}],"checkin_interval":5})", false, 0, std::nullopt},
      {"success as a text", R"({"success":"1","jobs":[{"id":"1"}]})", false, 0, std::nullopt},
      {"an empty answer", "{}", false, 0, std::nullopt},
      {"no answer", nullptr, false, 0, std::nullopt},
  };
  for (const Case& c : cases) {
    const auto read = readCheckInAnswer(answer(c.text));
    ASSERT_EQ(read.has_value(), c.counts) << c.name;
    if (!read) continue;
    EXPECT_EQ(read->jobs.size(), c.jobs) << c.name;
    EXPECT_EQ(read->checkin_interval, c.interval) << c.name;
  }
}

}  // namespace
}  // namespace msp
