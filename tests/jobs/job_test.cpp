#include "jobs/job.h"

#include <gtest/gtest.h>

#include "support/captured_log.h"

namespace msp {
namespace {

Job job(std::string_view text) { return Job::parse(text); }

TEST(Job, theIdIsAStrictIntegerInAText) {
  struct Case {
    const char* name;
    const char* job;
    std::int64_t expected;
  };
  constexpr Case kCases[] = {
      {"a number as text", R"({"id": "12"})", 12},
      {"leading zeros", R"({"id": "007"})", 7},
      {"a plus sign", R"({"id": "+7"})", 7},
      {"a minus sign", R"({"id": "-7"})", -7},
      {"the greatest id", R"({"id": "9223372036854775807"})", 9223372036854775807},
      {"one beyond the greatest", R"({"id": "9223372036854775808"})", 0},
      {"a JSON number", R"({"id": 7})", 0},
      {"a leading blank", R"({"id": " 7"})", 0},
      {"a trailing line feed", R"({"id": "7\n"})", 0},
      {"a trailing NUL", R"({"id": "7\u0000"})", 0},
      {"a decimal point", R"({"id": "7.0"})", 0},
      {"two signs", R"({"id": "+-7"})", 0},
      {"a sign alone", R"({"id": "-"})", 0},
      {"digits of another script", R"({"id": "٧"})", 0},
      {"an empty text", R"({"id": ""})", 0},
      {"a list", R"({"id": ["7"]})", 0},
      {"no id", R"({"type": "restart"})", 0},
      {"a job that is no object", R"("7")", 0},
      {"a job that is null", "null", 0},
  };
  for (const Case& c : kCases) EXPECT_EQ(jobID(job(c.job)), c.expected) << c.name;
}

TEST(Job, theArgumentsAreAnObjectInAText) {
  struct Case {
    std::string_view name;
    std::string_view job;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"an object", R"({"arguments": "{\"pid\": \"7\"}"})", R"({"pid":"7"})"},
      {"an empty object", R"({"arguments": "{}"})", "{}"},
      {"keys stay in their order", R"({"arguments": "{\"b\": 1, \"a\": null}"})", R"({"b":1,"a":null})"},
      {"an object that is no text", R"({"arguments": {"pid": "7"}})", {}},
      {"a list in a text", R"({"arguments": "[1]"})", {}},
      {"half an object", R"({"arguments": "{\"pid\": "})", {}},
      {"an empty text", R"({"arguments": ""})", {}},
      {"null", R"({"arguments": null})", {}},
      {"no arguments", R"({"type": "restart"})", {}},
      {"a job that is no object", "[]", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto arguments = jobArguments(job(c.job)).arguments;
    EXPECT_EQ(arguments ? std::optional(arguments->dump()) : std::nullopt, c.expected);
  }
}

TEST(Job, theIdComesWithTheArgumentsWhetherThereAreAnyOrNot) {
  EXPECT_EQ(jobArguments(job(R"({"id": "5", "arguments": "{}"})")).id, 5);
  EXPECT_EQ(jobArguments(job(R"({"id": "5"})")).id, 5);
}

TEST(Job, aProblemIsLoggedWithTypeAndArguments) {
  struct Case {
    const char* name;
    const char* job;
    std::string expected;
  };
  const Case cases[] = {
      {"type and arguments", R"({"type": "kill_process", "arguments": "{\"pid\": 12, \"force\": true}"})",
       R"(Unable to do it: kill_process: ["pid": 12, "force": true])"},
      {"no arguments", R"({"type": "execute_command"})", "Unable to do it: execute_command"},
      {"an empty dictionary", R"({"type": "restart", "arguments": "{}"})", "Unable to do it: restart: [:]"},
      {"arguments that do not parse", R"({"type": "restart", "arguments": "{"})", "Unable to do it: restart"},
      {"no type", R"({"id": "1"})", "Unable to do it: unknown job type"},
      {"a type that is no text", R"({"type": 3, "arguments": "{\"a\": \"b\"}"})",
       R"(Unable to do it: unknown job type: ["a": "b"])"},
      {"an empty type", R"({"type": ""})", "Unable to do it: "},
      {"a job that is no object", "7", "Unable to do it: unknown job type"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const test::CapturedLog log;
    logJobProblem(job(c.job), "Unable to do it");
    EXPECT_EQ(log.messages(), std::vector<std::string>{c.expected});
  }
}

TEST(Job, aFailureHasNoLists) {
  const JobResult expected{.id = 3, .message = "Error - no.", .success = 0};
  EXPECT_EQ(failure(3, "Error - no."), expected);
}

}  // namespace
}  // namespace msp
