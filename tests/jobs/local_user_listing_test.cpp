#include "jobs/local_user_listing.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "jobs/jobs_manager.h"
#include "platform/text.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"
#include "support/fake_task_runner.h"
#include "support/machine_files.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kListing = "dscl . -readall Users UniqueID RecordName RealName PrimaryGroupID";

UserData user(const std::string& name, const std::string& sid, const std::string& fullName,
              const std::string& group, bool enabled = true) {
  return {name, sid, fullName, enabled, {{group}}};
}

/// The record of the text's lines, with 80 as the administrators' group.
std::optional<UserData> parse(const std::string& record, TaskRunner& runner, bool skipSystemAccounts = true) {
  return parseUserRecord(lines(record), skipSystemAccounts, "80", runner);
}

TEST(ParseUserRecord, everyFormOfARecord) {
  struct Case {
    std::string name, record;
    std::optional<UserData> expected;
  };
  const Case cases[] = {
      {"values on their keys' lines", "RealName: IT\nRecordName: it\nUniqueID: 501",
       user("it", "501", "IT", "20")},
      {"a value with blanks is on the next line, indented",
       "RealName:\n Front Desk\nRecordName: desk\nUniqueID: 501", user("desk", "501", "Front Desk", "20")},
      {"a value on the next line may hold a colon",
       "RealName:\n Guest Desk: Lobby\nRecordName: desk\nUniqueID: 501",
       user("desk", "501", "Guest Desk: Lobby", "20")},
      {"of a value on the key's line what follows a colon is lost",
       "RealName: A:B\nRecordName: a\nUniqueID: 501", user("a", "501", "A", "20")},
      {"no full name", "RecordName: a\nUniqueID: 501", user("a", "501", "", "20")},
      {"a full name in another script", "RealName: Jos\u00e9\nRecordName: jose\nUniqueID: 501",
       user("jose", "501", "Jos\u00e9", "20")},
      {"of several short names the first", "RecordName: alice alice2\nUniqueID: 501",
       user("alice", "501", "", "20")},
      {"of several short names on lines of their own the first",
       "RecordName:\n marta\n Marta Alvarez\nUniqueID: 501", user("marta", "501", "", "20")},
      {"a short name is cut at blanks only", "RecordName: a\tb\u00A0c d\nUniqueID: 501",
       user("a\tb\u00A0c", "501", "", "20")},
      {"the order of the keys is free", "UniqueID: 501\nRecordName: a\nRealName: A",
       user("a", "501", "A", "20")},
      {"a later line replaces an earlier one", "RecordName: a\nRecordName: b\nUniqueID: 1\nUniqueID: 501",
       user("b", "501", "", "20")},
      {"white space around a value goes", "RealName: \t A\u00A0\nRecordName:  a \nUniqueID: \t501 ",
       user("a", "501", "A", "20")},
      {"other keys are ignored", "PrimaryGroupID: 80\nRecordName: a\nUniqueID: 501\nRecordNames: b",
       user("a", "501", "", "20")},
      {"a key is its line's beginning", " RecordName: b\nRecordName: a\nUniqueID: 501",
       user("a", "501", "", "20")},
      {"no short name", "RealName: A\nUniqueID: 501", std::nullopt},
      {"an empty short name", "RecordName: \nUniqueID: 501", std::nullopt},
      {"a short name announced and missing", "UniqueID: 501\nRecordName:", std::nullopt},
      {"a full name announced and missing",
       "UniqueID: 501\nRecordName: a\nRealName:", user("a", "501", "", "20")},
      {"no user ID", "RecordName: a", std::nullopt},
      {"an empty user ID", "RecordName: a\nUniqueID: ", std::nullopt},
      {"no line", "", std::nullopt},
      {"user ID 499 is the system's last", "RecordName: a\nUniqueID: 499", std::nullopt},
      {"user ID 500 is the first reported", "RecordName: a\nUniqueID: 500", user("a", "500", "", "20")},
      {"a negative user ID is the system's", "RecordName: a\nUniqueID: -2", std::nullopt},
      {"a sign is part of a number", "RecordName: a\nUniqueID: +499", std::nullopt},
      {"a user ID that is no number is kept", "RecordName: a\nUniqueID: x1", user("a", "x1", "", "20")},
      {"a user ID with a blank in it is no number", "RecordName: a\nUniqueID: 1 2",
       user("a", "1 2", "", "20")},
      {"a user ID beyond 64 bits is no number", "RecordName: a\nUniqueID: 9223372036854775808",
       user("a", "9223372036854775808", "", "20")},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    EXPECT_EQ(parse(row.record, runner), row.expected) << row.name;
    EXPECT_EQ(runner.commandLines().empty(), !row.expected) << row.name;
  }
}

TEST(ParseUserRecord, theSystemsAccountsAreKeptOnDemand) {
  test::FakeTaskRunner runner;
  EXPECT_EQ(parse("RecordName: root\nUniqueID: 0", runner, false), user("root", "0", "", "20"));
}

TEST(ParseUserRecord, theOneMembershipReportedIsTheAdministratorsOrStaff) {
  struct Case {
    std::string name, groups, expected;
  };
  const Case cases[] = {
      {"an administrator", "20 12 80", "80"},
      {"a standard user", "20 12", "20"},
      {"a standard user where staff has another ID", "99 12", "20"},
      {"a user whom id does not know", "id: a: no such user", "20"},
      {"no output", "", "20"},
      {"another number that holds the group's", "20 800 180", "20"},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    runner.answer("id -G a", row.groups);
    EXPECT_EQ(parse("RecordName: a\nUniqueID: 501", runner), user("a", "501", "", row.expected)) << row.name;
    EXPECT_EQ(runner.commandLines(), (Lines{"id -G a", "pwpolicy -u a -authentication-allowed"})) << row.name;
  }
}

TEST(ParseUserRecordDeathTest, aUserIDLineThatEndsAtItsColonEndsTheProcess) {
  test::FakeTaskRunner runner;
  for (const char* const record : {"RecordName: a\nUniqueID:", "UniqueID::"})
    EXPECT_DEATH(parse(record, runner), "^A user record has no user ID behind its key\n$");
}

TEST(GetUserGroupIDs, areAllOrNone) {
  struct Case {
    std::string name, output;
    Lines expected;
  };
  const Case cases[] = {
      {"every piece", "20 12\t61\n80", {"20", "12", "61", "80"}},
      {"a negative number", "-2 12", {"-2", "12"}},
      {"only the first has to be a number", "20 x", {"20", "x"}},
      {"the first is no number", "x 20", {}},
      {"no such user", "20 id: a: no such user", {}},
      {"nothing", "", {}},
      {"white space", " \n", {}},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    runner.answer("id -G a", row.output);
    EXPECT_EQ(getUserGroupIDs("a", runner), row.expected) << row.name;
  }
}

TEST(IsAuthenticationAllowed, unlessItSaysDisabledOrError) {
  struct Case {
    std::string output;
    bool expected;
  };
  const Case cases[] = {
      {"Policy allows user <a> to authenticate", true},
      {"", true},
      {"User <a> is not allowed to authenticate: Account is disabled", false},
      {"Error: user a was not found.", false},
      {"User <a> is not allowed to authenticate: Failed record policy", true},
      {"DISABLED, error", true},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    runner.answer("pwpolicy -u a -authentication-allowed", row.output);
    EXPECT_EQ(isAuthenticationAllowed("a", runner), row.expected) << row.output;
  }
}

TEST(GetAgentGroups, namesAndNumbersArePairedByPosition) {
  struct Case {
    std::string name, ids, names;
    std::vector<GroupData> expected;
  };
  const Case cases[] = {
      {"both", "0 80 20", "wheel admin staff", {{"admin", "80"}, {"staff", "20"}}},
      {"in the order of the names", "20 80", "staff admin", {{"staff", "20"}, {"admin", "80"}}},
      {"one", "0 20", "wheel staff", {{"staff", "20"}}},
      {"neither", "0", "wheel", {}},
      {"more names than numbers", "0 80", "wheel admin staff", {{"admin", "80"}}},
      {"more numbers than names", "0 80 20", "wheel admin", {{"admin", "80"}}},
      {"a name with a blank moves the rest", "0 99 80 20", "wheel Big Team admin", {{"admin", "20"}}},
      {"a name twice", "1 2", "admin admin", {{"admin", "1"}, {"admin", "2"}}},
      {"a name that only begins so", "1 2", "admins Staff", {}},
      {"no numbers", "", "admin", {}},
      {"no names", "80", "", {}},
      {"newlines cut too", "0\n80", "wheel\tadmin", {{"admin", "80"}}},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    runner.answer("id -G", row.ids);
    runner.answer("id -Gn", row.names);
    EXPECT_EQ(getAgentGroups(runner), row.expected) << row.name;
    EXPECT_EQ(runner.commandLines(), (Lines{"id -G", "id -Gn"})) << row.name;
  }
}

TEST(ReadLocalUsers, recordsEndAtAnEmptyLineOrADash) {
  struct Case {
    std::string name, output;
    Lines expected;
  };
  const std::string a = "RecordName: a\nUniqueID: 501\n";
  const std::string b = "RecordName: b\nUniqueID: 502\n";
  const Case cases[] = {
      {"a dash between two", a + "-\n" + b, {"a", "b"}},
      {"an empty line between two", a + "\n" + b, {"a", "b"}},
      {"any line that begins with a dash", a + "--- next\n" + b, {"a", "b"}},
      {"several ends in a row", "-\n\n" + a + "-\n\n-\n" + b, {"a", "b"}},
      {"a last record without an end is dropped", a + "-\nRecordName: b\nUniqueID: 502", {"a"}},
      {"without a separator it is one record", a + b, {"b"}},
      {"nothing", "", {}},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    runner.answer(kListing, row.output);
    Lines names;
    for (const UserData& found : readLocalUsers(true, "80", runner)) names.push_back(found.name);
    EXPECT_EQ(names, row.expected) << row.name;
    EXPECT_EQ(runner.commandLines().front(), std::string("streaming ") + kListing);
  }
}

/// Everything that the machine's files answer.
void answerLike(const std::string& machine, test::FakeTaskRunner& runner) {
  const std::string listing = test::machineOutput(machine, kListing);
  runner.answer(kListing, listing);
  for (const std::string line : {"id -G", "id -Gn"})
    runner.answer(line, test::trimmedMachineOutput(machine, line));
  for (const std::string_view token : tokens(listing)) {
    if (token.find('/') != std::string_view::npos) continue;
    const std::string name(token);
    for (const std::string& line : {"id -G " + name, "pwpolicy -u " + name + " -authentication-allowed"})
      runner.answer(line, test::trimmedMachineOutput(machine, line));
  }
}

TEST(GetLocalUsersAndGroups, ofThreeMachines) {
  struct Case {
    std::string machine;
    std::vector<UserData> expected;
  };
  const Case cases[] = {
      {"intel-ventura", {user("frontdesk", "502", "Front Desk", "20"), user("itadmin", "501", "IT", "80")}},
      {"m2-sonoma",
       {user("chloe", "501", "Chlo\u00e9 Fran\u00e7ois", "80"), user("ward", "502", "Wardrobe", "20"),
        user("guestdesk", "503", "Guest Desk: Lobby", "20"), user("marta", "504", "Marta Alvarez Ruiz", "80"),
        user("kiosk", "505", "", "20", false), user("bjorn", "506", "Bj\u00f6rn", "20")}},
      {"m4-sequoia",
       {user("mediaops", "501", "Media Ops", "80"), user("editor", "502", "editor", "20"),
        user("localtech", "500", "Local Technician", "80", false)}},
  };
  for (const Case& row : cases) {
    test::FakeHost host;
    host.directories["/Users"] = {};
    answerLike(row.machine, host.runner());
    const auto [users, groups] = getLocalUsersAndGroups(host, host.runner());
    EXPECT_EQ(users, row.expected) << row.machine;
    EXPECT_EQ(groups, (std::vector<GroupData>{{"admin", "80"}, {"staff", "20"}})) << row.machine;
  }
}

TEST(ReadLocalUsers, whateverIsPrintedEveryUserHasANameAndANumber) {
  const std::string pieces[] = {"RecordName:", "RealName:", "UniqueID: ", "UniqueID:x", "-",     "\n",
                                "\n",          " ",         "a",          "501",        "0",     "\xFF",
                                "::1",         "\t",        "\u00A0",     "é",          "\u2028"};
  std::mt19937 random(99);
  int found = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string output;
    for (auto count = random() % 60; count > 0; --count) output += pieces[random() % std::size(pieces)];
    // The one line that ends the process is never printed.
    output = [&output] {
      std::string kept;
      for (const std::string_view line : lines(output))
        if (!line.starts_with("UniqueID:") || splitNonEmpty(line, ':').size() >= 2)
          kept += std::string(line) + "\n";
      return kept;
    }();
    test::FakeTaskRunner runner;
    runner.answer(kListing, output);
    for (const UserData& one : readLocalUsers(true, "80", runner)) {
      ++found;
      ASSERT_FALSE(one.name.empty()) << output;
      ASSERT_FALSE(one.sid.empty()) << output;
      ASSERT_EQ(one.name.find(' '), std::string::npos) << output;
      ASSERT_EQ(one.group_members, std::vector<GroupID>{{"20"}}) << output;
      ASSERT_TRUE(one.enabled) << output;
    }
  }
  EXPECT_GT(found, 50);
}

TEST(ReadLocalUsers, wellFormedRecordsComeBackAsTheyWere) {
  std::mt19937 random(100);
  test::FakeTaskRunner runner;
  std::vector<UserData> expected;
  std::string output;
  for (int i = 0; i < 1000; ++i) {
    const std::string name = "user" + std::to_string(i);
    const std::string fullName = random() % 2 == 0 ? "Name" + std::to_string(i) : "Two Words " + name;
    const std::string id = std::to_string(random() % 1000);
    const bool isAdmin = random() % 3 == 0;
    const bool isEnabled = random() % 4 != 0;
    if (i > 0) output += "-\n";
    output += "PrimaryGroupID: 20\nRealName:";
    output += fullName.find(' ') == std::string::npos ? " " + fullName + "\n" : "\n " + fullName + "\n";
    output += "RecordName: " + name + (random() % 2 == 0 ? " other\n" : "\n") + "UniqueID: " + id + "\n";
    runner.answer("id -G " + name, isAdmin ? "20 80" : "20 12");
    runner.answer("pwpolicy -u " + name + " -authentication-allowed", isEnabled ? "allowed" : "disabled");
    if (std::stoi(id) > 499) expected.push_back(user(name, id, fullName, isAdmin ? "80" : "20", isEnabled));
  }
  runner.answer(kListing, output + "\n");
  EXPECT_EQ(readLocalUsers(true, "80", runner), expected);
}

class CleanUp : public testing::Test {
 protected:
  test::FakeHost host_;
  test::CapturedLog log_;
};

TEST_F(CleanUp, homeFoldersWithoutAccountAreRemovedAndSharedStays) {
  host_.directories["/Users"] = {"Shared", "anna", "temp-2022", "old user", "shared"};
  host_.runner().answer("rm -rf '/Users/old user/'", "rm: denied");
  cleanUpOrphanHomeDirectories({"anna", "nobody-home"}, host_, host_.runner());
  EXPECT_EQ(host_.runner().commandLines(),
            (Lines{"rm -rf /Users/temp-2022/", "rm -rf '/Users/old user/'", "rm -rf /Users/shared/"}));
  EXPECT_EQ(log_.messages(), (Lines{"Cleaning up home directory for deleted user temp-2022",
                                    "ERROR: deleting home directory for old user: rm: denied",
                                    "Cleaning up home directory for deleted user shared"}));
}

TEST_F(CleanUp, oneNameInTwoSpellingsIsOneName) {
  host_.directories["/Users"] = {"jos\u00e9", "ande\u0301", "Jos\u00e9", "\xFF"};
  cleanUpOrphanHomeDirectories({"jose\u0301", "and\u00e9"}, host_, host_.runner());
  EXPECT_EQ(host_.runner().commandLines(), (Lines{"rm -rf /Users/Jos\u00e9/", "rm -rf /Users/\xFF/"}));
}

TEST_F(CleanUp, aFolderThatCannotBeListedIsLogged) {
  cleanUpOrphanHomeDirectories({"anna"}, host_, host_.runner());
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
  EXPECT_EQ(log_.messages(), Lines{"ERROR: listing /Users failed: No such file or directory"});
}

class ListLocalUsers : public testing::Test {
 protected:
  ListLocalUsers() { host_.directories["/Users"] = {"anna", "gone"}; }
  void addGroups() {
    host_.runner().answer("id -G", "0 80 20");
    host_.runner().answer("id -Gn", "wheel admin staff");
  }
  void addUser() { host_.runner().answer(kListing, "RealName: Anna\nRecordName: anna\nUniqueID: 501\n"); }
  JobResult run() {
    return JobsManager(host_, http_).listLocalUsers(Job{{"id", "7"}, {"type", "get_local_users"}});
  }

  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
};

TEST_F(ListLocalUsers, groupsThenUsersThenTheCleanUp) {
  addGroups();
  addUser();
  host_.runner().answer("id -G anna", "20 80");
  const JobResult expected{.id = 7,
                           .message = "",
                           .success = 1,
                           .local_users = {{user("anna", "501", "Anna", "80")}},
                           .local_groups = {{{"admin", "80"}, {"staff", "20"}}}};
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(host_.runner().commandLines(),
            (Lines{"id -G", "id -Gn", std::string("streaming ") + kListing, "id -G anna",
                   "pwpolicy -u anna -authentication-allowed", "rm -rf /Users/gone/"}));
  EXPECT_EQ(log_.messages(), Lines{"Cleaning up home directory for deleted user gone"});
}

TEST_F(ListLocalUsers, withoutAnAdminGroupItsNumberIsZero) {
  host_.runner().answer("id -G", "20");
  host_.runner().answer("id -Gn", "staff");
  addUser();
  host_.runner().answer("id -G anna", "20 0 80");
  const auto result = run();
  ASSERT_TRUE(result.local_users);
  EXPECT_EQ(*result.local_users, std::vector<UserData>{user("anna", "501", "Anna", "0")});
}

TEST_F(ListLocalUsers, withoutAnyGroupItsNumberIsZeroToo) {
  addUser();
  host_.runner().answer("id -G anna", "20 0 80");
  EXPECT_EQ(getLocalUsersAndGroups(host_, host_.runner()).users,
            std::vector<UserData>{user("anna", "501", "Anna", "0")});
}

TEST_F(ListLocalUsers, theCleanUpTakesTheSystemsAccountsFoldersAndNeverChangesTheResult) {
  addGroups();
  host_.runner().answer(kListing, "RecordName: anna\nUniqueID: 501\n-\nRecordName: daemon\nUniqueID: 1\n");
  host_.directories["/Users"] = {"anna", "daemon"};
  host_.runner().answer("rm -rf /Users/daemon/", "rm: denied");
  EXPECT_EQ(run().success, 1);
  EXPECT_EQ(log_.messages(), Lines{"ERROR: deleting home directory for daemon: rm: denied"});
  host_.directories.clear();
  EXPECT_EQ(run().success, 1);
  EXPECT_EQ(host_.runnersMade(), 2) << "a fresh one each";
}

TEST_F(ListLocalUsers, noUsersMeanNoCleanUp) {
  addGroups();
  const JobResult expected{.id = 7, .message = "No users found.", .success = 0};
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(log_.messages(), (Lines{"Skipping home directory clean-up: no users listed", "No users found."}));
  EXPECT_EQ(host_.runner().commandLines(), (Lines{"id -G", "id -Gn", std::string("streaming ") + kListing}));
}

TEST_F(ListLocalUsers, neitherUsersNorGroups) {
  const JobResult expected{.id = 7, .message = "No users or groups found.", .success = 0};
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(log_.messages(),
            (Lines{"Skipping home directory clean-up: no users listed", "No users or groups found."}));
}

TEST_F(ListLocalUsers, usersWithoutGroupsFailAndCleanUpAllTheSame) {
  addUser();
  const JobResult expected{.id = 7, .message = "No groups found.", .success = 0};
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(log_.messages(), (Lines{"Cleaning up home directory for deleted user gone", "No groups found."}));
}

}  // namespace
}  // namespace msp
