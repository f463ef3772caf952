#include "jobs/local_accounts.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(LocalAccounts, anAccountIsEncodedWithItsGroups) {
  const UserData user{
      .name = "jose", .sid = "501", .full_name = "José", .enabled = true, .group_members = {{.sid = "20"}}};
  EXPECT_EQ(
      Json(user).dump(),
      R"({"name":"jose","sid":"501","full_name":"José","enabled":true,"group_members":[{"sid":"20"}]})");
}

TEST(LocalAccounts, anAccountWithoutAnythingHasEveryKeyToo) {
  EXPECT_EQ(Json(UserData{}).dump(),
            R"({"name":"","sid":"","full_name":"","enabled":false,"group_members":[]})");
}

TEST(LocalAccounts, aGroupIsEncodedWithNameAndNumber) {
  EXPECT_EQ(Json(GroupData{.name = "admin", .sid = "80"}).dump(), R"({"name":"admin","sid":"80"})");
}

}  // namespace
}  // namespace msp
