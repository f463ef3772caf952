#include "api/envelope.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(Envelope, carriesTheKeysOfEachTask) {
  EXPECT_EQ(
      createRequest("Annas-MacBook-Pro"),
      Json({{"api_action", "msp"}, {"api_version", 1}, {"task", "create"}, {"name", "Annas-MacBook-Pro"}}));
  EXPECT_EQ(testRequest(), Json({{"api_action", "msp"}, {"api_version", 1}, {"task", "test"}}));
  EXPECT_EQ(checkInRequest("4F2A", "{\n}"), Json({{"api_action", "msp"},
                                                  {"api_version", 1},
                                                  {"task", "checkin"},
                                                  {"uuid", "4F2A"},
                                                  {"data", "{\n}"}}));
}

TEST(Envelope, isCompactWithTheVersionAsANumberAndTheReportAsAText) {
  std::string problem;
  EXPECT_EQ(
      compactText(checkInRequest("4F2A", "{\n  \"ram\": 1\n}"), problem),
      R"({"api_action":"msp","api_version":1,"task":"checkin","uuid":"4F2A","data":"{\n  \"ram\": 1\n}"})");
}

}  // namespace
}  // namespace msp
