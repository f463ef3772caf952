#include "platform/uuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace msp {
namespace {

TEST(Uuid, hasTheCanonicalUpperCaseForm) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = makeUuid();
    EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
  }
}

TEST(Uuid, isAnotherEveryTime) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(seen.insert(makeUuid()).second);
}

}  // namespace
}  // namespace msp
