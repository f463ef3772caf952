#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "lab/running_program.h"
#include "mac/machine.h"
#include "mac/simulated_mac.h"
#include "mac/state.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

namespace fs = std::filesystem;
using lab::SimulatedMac;
using Words = std::vector<std::string>;
using Names = std::vector<std::string>;

constexpr const char* kHint = "Ask Varnex to reset if you forget.";

/// A machine whose tools change it; intel-ventura unless a test makes another.
class MacState : public testing::Test {
 protected:
  Finished run(Words words) const { return run(mac_, std::move(words)); }
  static Finished run(const SimulatedMac& mac, Words words) {
    words.front() = mac.tool(words.front());
    return runProgram(std::move(words));
  }
  Finished add(const std::string& name, bool admin = false) const { return run(addition(name, admin)); }
  static Words addition(const std::string& name, bool admin = false) {
    Words words = {"sysadminctl", "-addUser", name, "-password", "secret of " + name, "-passwordHint", kHint};
    if (admin) words.emplace_back("-admin");
    return words;
  }
  static Words listing() {
    return {"dscl", ".", "-readall", "Users", "UniqueID", "RecordName", "RealName", "PrimaryGroupID"};
  }
  static Words processes() { return {"ps", "-ax", "-c", "-r", "-o", "pid,%cpu,rss,comm"}; }
  static Words membership() { return {"dscl", ".", "-read", "/Groups/admin", "GroupMembership"}; }
  std::string filed(const std::string& name) const { return contentOf(mac_.folder() / "machine" / name); }
  std::string filedListing() const {
    return filed("dscl . -readall Users UniqueID RecordName RealName PrimaryGroupID");
  }
  bool isThere(const std::string& name) const {
    const auto names = mac_.accounts();
    return std::find(names.begin(), names.end(), name) != names.end();
  }

  /// Succeeds without a word.
  void expectSilence(const Words& words) const {
    std::string commandLine;
    for (const auto& word : words) commandLine += word + " ";
    expectAnswer(run(words), {}, commandLine);
  }
  static void expectAnswer(const Finished& finished, const lab::Answer& expected, std::string_view name) {
    EXPECT_EQ(finished.output, expected.output) << name;
    EXPECT_EQ(finished.error, expected.error) << name;
    EXPECT_EQ(finished.status, expected.status) << name;
  }

  TemporaryDirectory place_;
  SimulatedMac mac_{place_.file("lab"), "intel-ventura"};
};

std::string withoutPart(std::string text, std::string_view part) {
  const auto at = text.find(part);
  EXPECT_NE(at, std::string::npos) << part;
  return at == std::string::npos ? text : text.erase(at, part.size());
}

TEST_F(MacState, hasNoFileAsLongAsToolsOnlyAsk) {
  for (const auto& words : {listing(), processes(), membership(), Words{"launchctl", "list"},
                            Words{"id", "root"}, Words{"id", "-G", "unknown"}, Words{"kill", "99999"}}) {
    run(words);
  }
  EXPECT_FALSE(fs::exists(mac_.folder() / "state.json"));
}

TEST_F(MacState, knowsWhatTheMachineStartsWith) {
  EXPECT_TRUE(mac_.isAdmin("itadmin"));
  EXPECT_TRUE(mac_.isAdmin("root"));
  EXPECT_FALSE(mac_.isAdmin("frontdesk"));
  EXPECT_FALSE(mac_.isAdmin("unknown"));
  EXPECT_TRUE(mac_.isEnabled("frontdesk"));
  EXPECT_FALSE(mac_.isEnabled("unknown"));
  EXPECT_EQ(mac_.password("frontdesk"), std::nullopt);
  EXPECT_FALSE(mac_.mustChangePassword("frontdesk"));
  EXPECT_EQ(mac_.homeFolders(), (Names{"Shared", "frontdesk", "itadmin", "temp-2022"}));
  EXPECT_EQ(mac_.accounts().front(), "_amavisd");
  EXPECT_EQ(mac_.accounts().back(), "itadmin");
  EXPECT_EQ(mac_.accounts().size(), 17U);
  EXPECT_TRUE(isThere("root"));
  EXPECT_EQ(mac_.loadedServices().size(), 10U);
  EXPECT_EQ(mac_.loadedServices().front(), "com.apple.mds");
  EXPECT_TRUE(mac_.isRunning(4411)) << "listed by ps";
  EXPECT_TRUE(mac_.isRunning(402)) << "a service's";
  EXPECT_FALSE(mac_.isRunning(99999));
  EXPECT_EQ(mac_.restarts(), Names());
}

TEST_F(MacState, tellsADisabledAccountFromALockedOutOne) {
  const SimulatedMac other(place_.file("other"), "m2-sonoma");
  EXPECT_FALSE(other.isEnabled("kiosk"));
  EXPECT_TRUE(other.isEnabled("bjorn"));
  EXPECT_EQ(run(other, {"pwpolicy", "-u", "bjorn", "-enableuser"}).status, 0);
  EXPECT_EQ(run(other, {"pwpolicy", "-u", "bjorn", "-authentication-allowed"}).output,
            contentOf(other.folder() / "machine/pwpolicy -u bjorn -authentication-allowed"))
      << "it was not disabled before";
}

// Accounts

TEST_F(MacState, anAddedAccountIsKnownToEveryTool) {
  const auto added = add("anna");
  EXPECT_EQ(added.output, "");
  EXPECT_EQ(added.status, 0);
  EXPECT_EQ(
      added.error,
      "2024-11-05 09:15:10.120 sysadminctl[2290:20411] ----------------------------\n"
      "2024-11-05 09:15:10.121 sysadminctl[2290:20411] No clear text password or interactive option was "
      "specified (adduser, change/reset password will not allow user to use FDE) !\n"
      "2024-11-05 09:15:10.121 sysadminctl[2290:20411] ----------------------------\n"
      "2024-11-05 09:15:10.380 sysadminctl[2290:20411] Creating user record…\n"
      "2024-11-05 09:15:10.911 sysadminctl[2290:20411] Assigning UID: 503 GID: 20\n"
      "2024-11-05 09:15:12.040 sysadminctl[2290:20411] Creating home directory at /Users/anna\n");
  expectAnswer(
      run(listing()),
      {.output = filedListing() + "-\nPrimaryGroupID: 20\nRealName: anna\nRecordName: anna\nUniqueID: 503\n"},
      "the listing");
  expectAnswer(run({"id", "anna"}),
               {.output = "uid=503(anna) gid=20(staff) groups=20(staff),12(everyone),61(localaccounts),"
                          "701(com.apple.sharepoint.group.1),100(_lpoperator)\n"},
               "id");
  expectAnswer(run({"id", "-G", "anna"}), {.output = "20 12 61 701 100\n"}, "id -G");
  expectAnswer(run({"pwpolicy", "-u", "anna", "-authentication-allowed"}),
               {.output = "Policy allows user <anna> to authenticate\n"}, "pwpolicy");
  expectAnswer(
      run({"sysadminctl", "-secureTokenStatus", "anna"}),
      {.error = "2024-11-05 09:14:02.118 sysadminctl[2214:19873] Secure token is DISABLED for user anna\n"},
      "the token");
  expectAnswer(run(membership()), {.output = "GroupMembership: root itadmin\n"}, "the administrators");
  EXPECT_TRUE(isThere("anna"));
  EXPECT_TRUE(mac_.isEnabled("anna"));
  EXPECT_FALSE(mac_.isAdmin("anna"));
  EXPECT_EQ(mac_.password("anna"), "secret of anna");
  EXPECT_TRUE(fs::is_directory(mac_.users() / "anna"));
}

TEST_F(MacState, anAddedAdministratorIsInItsGroup) {
  EXPECT_EQ(add("boss", true).status, 0);
  expectAnswer(run(membership()), {.output = "GroupMembership: root itadmin boss\n"}, "the administrators");
  EXPECT_EQ(run({"id", "-G", "boss"}).output, "20 12 61 80 701 100\n");
  EXPECT_EQ(run({"id", "boss"}).output,
            "uid=503(boss) gid=20(staff) groups=20(staff),12(everyone),61(localaccounts),80(admin),"
            "701(com.apple.sharepoint.group.1),100(_lpoperator)\n");
  EXPECT_TRUE(mac_.isAdmin("boss"));
}

TEST_F(MacState, everyOtherAccountAndProcessIsAsBefore) {
  add("anna");
  for (const auto* commandLine : {"id itadmin", "id -G frontdesk", "id -G", "id -Gn", "launchctl list",
                                  "pwpolicy -u root -authentication-allowed"}) {
    Words words;
    const std::string_view rest = commandLine;
    for (std::size_t at = 0; at <= rest.size();) {
      const auto end = std::min(rest.find(' ', at), rest.size());
      words.emplace_back(rest.substr(at, end - at));
      at = end + 1;
    }
    expectAnswer(run(words), {.output = filed(commandLine)}, commandLine);
  }
  expectAnswer(run(processes()), {.output = filed("ps -ax -c -r -o pid,%cpu,rss,comm")}, "ps");
}

TEST_F(MacState, anAccountTakesTheLowestFreeNumber) {
  add("anna");
  add("bert");
  EXPECT_NE(run({"id", "bert"}).output.find("uid=504(bert)"), std::string::npos);
  expectSilence({"dscl", ".", "-delete", "/Users/anna"});
  add("carl");
  EXPECT_NE(run({"id", "carl"}).output.find("uid=503(carl)"), std::string::npos);
}

TEST_F(MacState, anAccountThatTheMachineHasFiledKeepsItsNumberWhileThatIsFree) {
  const auto filedText = filed(
      std::string("sysadminctl -addUser newhire -password Pa55-word -passwordHint ") + kHint + ".stderr");
  const Words words = {"sysadminctl", "-addUser",      "newhire", "-password",
                       "Pa55-word",   "-passwordHint", kHint};
  EXPECT_EQ(run(words).error, filedText);
  EXPECT_NE(run({"id", "newhire"}).output.find("uid=510(newhire)"), std::string::npos);
}

TEST_F(MacState, newerSystemsLeaveTheHomeFolderToTheFirstLogin) {
  const SimulatedMac other(place_.file("other"), "m4-sequoia");
  const auto added = run(other, addition("anna"));
  EXPECT_TRUE(added.error.ends_with("Home directory is assigned (not created!) at /Users/anna\n"))
      << added.error;
  EXPECT_FALSE(fs::exists(other.users() / "anna"));
  EXPECT_NE(run(other, {"id", "anna"}).output.find("uid=503(anna)"), std::string::npos);
}

TEST_F(MacState, refusesAnAccountThatIsThereOrCannotBe) {
  struct Case {
    std::string_view name;
    std::string account, reason;
  };
  const Case cases[] = {
      {"the machine's own", "frontdesk", "an account named \"frontdesk\" exists already"},
      {"a system account", "root", "an account named \"root\" exists already"},
      {"an added one", "anna", "an account named \"anna\" exists already"},
      {"no name", "", "\"\" is no name for an account"},
      {"a way out of the folder", "..", "\"..\" is no name for an account"},
      {"the folder itself", ".", "\".\" is no name for an account"},
      {"a path", "../agent/anna", "\"../agent/anna\" is no name for an account"},
      {"an option", "-admin", "\"-admin\" is no name for an account"},
  };
  add("anna");
  const auto before = contentOf(mac_.folder() / "state.json");
  for (const auto& row : cases) {
    expectAnswer(
        add(row.account),
        {.error = "2024-11-05 09:15:10.120 sysadminctl[2290:20411] Error: " + row.reason + "\n", .status = 1},
        row.name);
  }
  EXPECT_EQ(contentOf(mac_.folder() / "state.json"), before);
}

TEST_F(MacState, printsNamesWithBlanksAndOtherLettersAsTheDirectoryDoes) {
  add("zoë k");
  add("b", true);
  run({"dseditgroup", "-o", "edit", "-a", "zoë k", "-t", "user", "admin"});
  EXPECT_EQ(run(listing()).output,
            filedListing() +
                "-\nPrimaryGroupID: 20\nRealName:\n zoë k\nRecordName:\n zoë k\nUniqueID: 503\n"
                "-\nPrimaryGroupID: 20\nRealName: b\nRecordName: b\nUniqueID: 504\n");
  EXPECT_EQ(run(membership()).output, "GroupMembership:\n root\n itadmin\n zoë k\n b\n");
  EXPECT_TRUE(mac_.isAdmin("zoë k"));
  expectSilence({"dscl", ".", "-delete", "/Users/zoë k"});
  EXPECT_EQ(run(membership()).output, "GroupMembership: root itadmin b\n");
}

TEST_F(MacState, aDeletedAccountIsGoneEverywhereButForItsHome) {
  run({"dseditgroup", "-o", "edit", "-a", "frontdesk", "-t", "user", "admin"});
  expectSilence({"dscl", ".", "-delete", "/Users/frontdesk"});
  expectAnswer(run(listing()),
               {.output = withoutPart(filedListing(),
                                      "PrimaryGroupID: 20\nRealName:\n Front Desk\nRecordName: frontdesk\n"
                                      "UniqueID: 502\n-\n")},
               "the listing");
  for (const Words& words : {Words{"id", "frontdesk"}, Words{"id", "-G", "frontdesk"}}) {
    expectAnswer(run(words), {.error = "id: frontdesk: no such user\n", .status = 1}, words[1]);
  }
  expectAnswer(run({"pwpolicy", "-u", "frontdesk", "-authentication-allowed"}),
               {.error = "Error: user frontdesk was not found.\n", .status = 69}, "pwpolicy");
  expectAnswer(run({"sysadminctl", "-secureTokenStatus", "frontdesk"}), {.status = 1}, "the token");
  expectAnswer(run(membership()), {.output = "GroupMembership: root itadmin\n"}, "the administrators");
  expectAnswer(run({"dscl", ".", "-delete", "/Users/frontdesk"}),
               {.output = "delete: Invalid Path\n",
                .error = "<dscl_cmd> DS Error: -14009 (eDSUnknownNodeName)\n",
                .status = 185},
               "once more");
  EXPECT_FALSE(isThere("frontdesk"));
  EXPECT_FALSE(mac_.isAdmin("frontdesk"));
  EXPECT_TRUE(fs::exists(mac_.users() / "frontdesk"));
}

TEST_F(MacState, aRefusedDeletionStaysRefused) {
  expectAnswer(run({"dscl", ".", "-delete", "/Users/itadmin"}),
               {.error = filed("dscl . -delete _Users_itadmin.stderr"), .status = 40}, "itadmin");
  EXPECT_TRUE(isThere("itadmin"));
  EXPECT_FALSE(fs::exists(mac_.folder() / "state.json"));
}

TEST_F(MacState, anAccountCanComeBackAfterItsDeletion) {
  expectSilence({"dscl", ".", "-delete", "/Users/frontdesk"});
  expectSilence({"dscl", ".", "-passwd", "/Users/itadmin", "new"});
  EXPECT_EQ(add("frontdesk").status, 0);
  EXPECT_EQ(run({"id", "-G", "frontdesk"}).output, "20 12 61 701 100\n");
  EXPECT_EQ(mac_.password("frontdesk"), "secret of frontdesk");
  expectSilence({"dscl", ".", "-delete", "/Users/frontdesk"});
  EXPECT_FALSE(isThere("frontdesk"));
  EXPECT_EQ(mac_.password("frontdesk"), std::nullopt);
}

TEST_F(MacState, evenTheNameOfTheMissingUserCanBeTaken) {
  EXPECT_EQ(add("nosuchuser").status, 0);
  EXPECT_EQ(run({"id", "-G", "nosuchuser"}).output, "20 12 61 701 100\n");
  EXPECT_EQ(run({"pwpolicy", "-u", "nosuchuser", "-authentication-allowed"}).output,
            "Policy allows user <nosuchuser> to authenticate\n");
  expectSilence({"dseditgroup", "-o", "edit", "-a", "nosuchuser", "-t", "user", "admin"});
  EXPECT_TRUE(mac_.isAdmin("nosuchuser"));
  expectSilence({"dscl", ".", "-delete", "/Users/nosuchuser"});
  EXPECT_FALSE(isThere("nosuchuser"));
}

TEST_F(MacState, remembersThePasswordThatWasSet) {
  expectSilence({"dscl", ".", "-passwd", "/Users/frontdesk", "first"});
  expectSilence({"dscl", ".", "-passwd", "/Users/frontdesk", "two  words and a \"quote\""});
  EXPECT_EQ(mac_.password("frontdesk"), "two  words and a \"quote\"");
  expectAnswer(run({"dscl", ".", "-passwd", "/Users/unknown", "secret"}),
               {.output = "passwd: Invalid Path\n",
                .error = "<dscl_cmd> DS Error: -14009 (eDSUnknownNodeName)\n",
                .status = 185},
               "a missing account");
  EXPECT_EQ(mac_.password("unknown"), std::nullopt);
}

TEST_F(MacState, membershipFollowsTheGroupEditor) {
  expectSilence({"dseditgroup", "-o", "edit", "-a", "frontdesk", "-t", "user", "admin"});
  EXPECT_EQ(run({"id", "-G", "frontdesk"}).output, "20 12 61 80 701 100\n");
  EXPECT_EQ(run(membership()).output, "GroupMembership: root itadmin frontdesk\n");
  expectSilence({"dseditgroup", "-o", "edit", "-d", "itadmin", "-t", "user", "admin"});
  EXPECT_EQ(run({"id", "-G", "itadmin"}).output, "20 12 61 79 81 98 701 33 100 204 250 395 398\n");
  EXPECT_EQ(run(membership()).output, "GroupMembership: root frontdesk\n");
  EXPECT_FALSE(mac_.isAdmin("itadmin"));
  expectSilence({"dseditgroup", "-o", "edit", "-d", "frontdesk", "-t", "user", "admin"});
  EXPECT_EQ(run({"id", "frontdesk"}).output, filed("id frontdesk"));
  expectSilence({"dseditgroup", "-o", "edit", "-d", "root", "-t", "user", "admin"});
  expectAnswer(run(membership()), {.error = "No such key: GroupMembership\n"}, "nobody is left");
}

TEST_F(MacState, membershipOfAMemberStaysAsItIs) {
  expectSilence({"dseditgroup", "-o", "edit", "-a", "itadmin", "-t", "user", "admin"});
  EXPECT_EQ(run({"id", "itadmin"}).output, filed("id itadmin"));
  EXPECT_EQ(run(membership()).output, "GroupMembership: root itadmin\n");
}

TEST_F(MacState, theGroupEditorMissesAMissingAccount) {
  for (const auto* option : {"-a", "-d"}) {
    expectAnswer(run({"dseditgroup", "-o", "edit", option, "unknown", "-t", "user", "admin"}),
                 {.error = "Record was not found.\n", .status = 64}, option);
  }
}

TEST_F(MacState, aDisabledAccountMayNotAuthenticate) {
  expectSilence({"pwpolicy", "-u", "frontdesk", "-disableuser"});
  expectAnswer(run({"pwpolicy", "-u", "frontdesk", "-authentication-allowed"}),
               {.output = "User <frontdesk> is not allowed to authenticate: Account is disabled\n"},
               "disabled");
  EXPECT_EQ(run({"id", "-G", "frontdesk"}).output, "20 12 61 701 100 396\n");
  EXPECT_FALSE(mac_.isEnabled("frontdesk"));
  EXPECT_TRUE(mac_.isEnabled("itadmin"));
  expectSilence({"pwpolicy", "-u", "frontdesk", "-enableuser"});
  EXPECT_EQ(run({"pwpolicy", "-u", "frontdesk", "-authentication-allowed"}).output,
            "Policy allows user <frontdesk> to authenticate\n");
  EXPECT_EQ(run({"id", "frontdesk"}).output, filed("id frontdesk"));
  EXPECT_TRUE(mac_.isEnabled("frontdesk"));
}

TEST_F(MacState, anAccountThatWasDisabledFromTheStartCanBeEnabled) {
  const SimulatedMac other(place_.file("other"), "m4-sequoia");
  EXPECT_EQ(run(other, {"pwpolicy", "-u", "localtech", "-enableuser"}).status, 0);
  EXPECT_EQ(run(other, {"pwpolicy", "-u", "localtech", "-authentication-allowed"}).output,
            "Policy allows user <localtech> to authenticate\n");
  EXPECT_EQ(run(other, {"id", "-G", "localtech"}).output, "20 12 61 80\n");
  EXPECT_TRUE(other.isEnabled("localtech"));
}

TEST_F(MacState, aNewPasswordIsAskedForUntilThePoliciesAreCleared) {
  expectAnswer(run({"pwpolicy", "-u", "frontdesk", "-setpolicy", "newPasswordRequired=1"}),
               {.output = "Setting policy for frontdesk\n"}, "set");
  EXPECT_TRUE(mac_.mustChangePassword("frontdesk"));
  expectSilence({"pwpolicy", "-u", "frontdesk", "-clearaccountpolicies"});
  EXPECT_FALSE(mac_.mustChangePassword("frontdesk"));
  EXPECT_EQ(run({"id", "frontdesk"}).output, filed("id frontdesk"));
}

TEST_F(MacState, policiesOfAMissingAccountAreRefused) {
  for (const Words& option :
       {Words{"-disableuser"}, Words{"-enableuser"}, Words{"-clearaccountpolicies"},
        Words{"-setpolicy", "newPasswordRequired=1"}, Words{"-authentication-allowed"}}) {
    Words words = {"pwpolicy", "-u", "unknown"};
    words.insert(words.end(), option.begin(), option.end());
    expectAnswer(run(words), {.error = "Error: user unknown was not found.\n", .status = 69}, option.front());
  }
}

TEST_F(MacState, toolsAtTheSameMomentLoseNothing) {
  constexpr int kTools = 20;
  std::vector<std::unique_ptr<RunningProgram>> running;
  for (int i = 0; i < kTools; ++i) {
    auto words = addition("user" + std::to_string(i), i % 2 == 0);
    words.front() = mac_.tool(words.front());
    running.push_back(std::make_unique<RunningProgram>(words));
  }
  for (auto& tool : running) EXPECT_EQ(tool->wait().status, 0);
  std::set<std::string> numbers;
  for (int i = 0; i < kTools; ++i) {
    const auto name = "user" + std::to_string(i);
    EXPECT_TRUE(isThere(name));
    EXPECT_EQ(mac_.isAdmin(name), i % 2 == 0);
    const auto line = run({"id", name}).output;
    numbers.insert(line.substr(0, line.find('(')));
  }
  EXPECT_EQ(numbers.size(), static_cast<std::size_t>(kTools));
  EXPECT_EQ(*numbers.begin(), "uid=503");
  EXPECT_EQ(*numbers.rbegin(), "uid=522");
}

TEST_F(MacState, isWaitedForWhileItIsChanged) {
  auto machine = std::make_unique<lab::Machine>(mac_.folder());
  auto words = addition("anna");
  words.front() = mac_.tool(words.front());
  RunningProgram tool(words);
  machine->state.restarts.emplace_back("09:30");
  machine->save();
  EXPECT_TRUE(tool.runs());
  machine.reset();
  EXPECT_EQ(tool.wait().status, 0);
  EXPECT_EQ(mac_.restarts(), Names{"09:30"});
  EXPECT_TRUE(isThere("anna"));
}

TEST_F(MacState, thatCannotBeReadIsSaidSo) {
  std::ofstream(mac_.folder() / "state.json") << "no state";
  const auto finished = run({"launchctl", "list"});
  EXPECT_EQ(finished.output, "");
  EXPECT_TRUE(finished.error.starts_with("mac-effects: ")) << finished.error;
  EXPECT_EQ(finished.status, 2);
}

TEST_F(MacState, isPrintedAndReadBack) {
  lab::State state;
  EXPECT_EQ(lab::parseState(lab::printState(state)), state);
  state.added_accounts = {{"anna", 503}, {"zoë", 504}};
  state.removed_accounts = {"frontdesk", "itadmin"};
  state.account_changes["anna"] = {
      .password = "secret", .admin = true, .enabled = false, .new_password_required = true};
  state.account_changes["zoë"].policies_cleared = true;
  state.processes = {{4411, "  38.4 512204 Google Chrome Helper (Renderer)"}};
  state.services = std::vector<lab::ServiceRow>{};
  state.last_pid = 90007;
  state.restarts = {"14:05"};
  EXPECT_EQ(lab::parseState(lab::printState(state)), state);
}

// Services

constexpr const char* kBackupPlist = "/Library/LaunchDaemons/org.example.backup.plist";

TEST_F(MacState, aServiceIsLoadedOnce) {
  expectSilence({"launchctl", "bootout", "system/org.example.backup"});
  EXPECT_EQ(run({"launchctl", "list"}).output,
            withoutPart(filed("launchctl list"), "-\t78\torg.example.backup\n"));
  expectSilence({"launchctl", "bootstrap", "system", kBackupPlist});
  EXPECT_EQ(
      run({"launchctl", "list"}).output,
      withoutPart(filed("launchctl list"), "-\t78\torg.example.backup\n") + "-\t0\torg.example.backup\n");
  expectAnswer(run({"launchctl", "bootstrap", "system", kBackupPlist}),
               {.error = "Bootstrap failed: 5: Input/output error\n", .status = 5}, "a second time");
  EXPECT_EQ(mac_.loadedServices().back(), "org.example.backup");
  EXPECT_EQ(mac_.loadedServices().size(), 10U);
}

TEST_F(MacState, aServiceThatIsLoadedFromTheStartIsLoadedOnceMoreWhereThatIsFiled) {
  expectSilence({"launchctl", "bootstrap", "system", kBackupPlist});
  auto expected = filed("launchctl list");
  const std::string before = "-\t78\torg.example.backup\n";
  expected.replace(expected.find(before), before.size(), "-\t0\torg.example.backup\n");
  EXPECT_EQ(run({"launchctl", "list"}).output, expected);
  EXPECT_EQ(run({"launchctl", "bootstrap", "system", kBackupPlist}).status, 5);
}

TEST_F(MacState, loadsNoServiceWithoutAPropertyList) {
  struct Case {
    std::string_view name;
    std::string plist;
  };
  const Case cases[] = {
      {"a file that is missing", "/Library/LaunchDaemons/org.example.absent.plist"},
      {"another one", "/Library/LaunchAgents/org.example.backup.plist"},
      {"loaded from the start, and nothing filed", "/System/Library/LaunchDaemons/com.apple.smbd.plist"},
      {"another kind of file", "/Library/Receipts/InstallHistory"},
      {"no absolute path", "Library/LaunchDaemons/org.example.backup.plist"},
      {"nothing", ""},
  };
  for (const auto& row : cases) {
    expectAnswer(run({"launchctl", "bootstrap", "system", row.plist}),
                 {.error = "Bootstrap failed: 5: Input/output error\n", .status = 5}, row.name);
  }
  EXPECT_EQ(run({"launchctl", "list"}).output, filed("launchctl list"));
}

TEST_F(MacState, loadsAServiceWhosePropertyListIsNew) {
  std::ofstream(mac_.folder() / "Library/LaunchAgents/org.example.my agent.plist") << "text";
  expectSilence({"launchctl", "bootstrap", "system", "/Library/LaunchAgents/org.example.my agent.plist"});
  EXPECT_EQ(run({"launchctl", "list"}).output, filed("launchctl list") + "-\t0\torg.example.my agent\n");
}

TEST_F(MacState, aServiceThatIsNotLoadedCannotBeStoppedOrRestarted) {
  expectAnswer(run({"launchctl", "bootout", "system/org.example.other"}),
               {.error = "Boot-out failed: 3: No such process\n", .status = 3}, "bootout");
  expectAnswer(
      run({"launchctl", "kickstart", "-k", "system/org.example.other"}),
      {.error = "Could not find service \"org.example.other\" in domain for system\n", .status = 113},
      "kickstart");
}

TEST_F(MacState, aRestartedServiceHasANewProcess) {
  expectSilence({"launchctl", "kickstart", "-k", "system/com.example.vpn.helper"});
  expectSilence({"launchctl", "kickstart", "-k", "system/org.example.backup"});
  auto expected = withoutPart(filed("launchctl list"), "402\t-9\t");
  expected.replace(expected.find("com.example.vpn.helper"), 0, "90001\t0\t");
  const std::string before = "-\t78\torg.example.backup\n";
  expected.replace(expected.find(before), before.size(), "90002\t0\torg.example.backup\n");
  EXPECT_EQ(run({"launchctl", "list"}).output, expected);
  EXPECT_FALSE(mac_.isRunning(402));
  EXPECT_TRUE(mac_.isRunning(90001));
  EXPECT_EQ(run(processes()).output, filed("ps -ax -c -r -o pid,%cpu,rss,comm"));
}

TEST_F(MacState, aServiceAndItsProcessAreOne) {
  // opendirectoryd is listed by both tools, as 118.
  const auto listed = [this](const std::string& line) {
    return run(processes()).output.find(line) != std::string::npos;
  };
  expectSilence({"launchctl", "kickstart", "-k", "system/com.apple.opendirectoryd"});
  EXPECT_TRUE(listed("\n90001   0.1   6120 opendirectoryd\n"));
  EXPECT_FALSE(listed("  118 "));
  expectSilence({"kill", "90001"});
  EXPECT_FALSE(listed("opendirectoryd"));
  EXPECT_NE(run({"launchctl", "list"}).output.find("\n-\t-15\tcom.apple.opendirectoryd\n"),
            std::string::npos);
  expectSilence({"launchctl", "bootout", "system/com.apple.mds"});
  EXPECT_FALSE(listed(" mds\n"));
}

// Processes and restarts

TEST_F(MacState, aKilledProcessIsGone) {
  expectSilence({"kill", "5122"});
  EXPECT_EQ(run(processes()).output,
            withoutPart(filed("ps -ax -c -r -o pid,%cpu,rss,comm"), " 5122   0.0   1512 -zsh\n"));
  expectAnswer(run({"kill", "5122"}), {.error = "kill: 5122: No such process\n", .status = 1}, "once more");
  EXPECT_FALSE(mac_.isRunning(5122));
}

TEST_F(MacState, killsOnlyWhatIsAProcess) {
  struct Case {
    std::string_view name;
    std::string pid;
    lab::Answer answer;
  };
  const Case cases[] = {
      {"a process that is missing", "31337", {.error = "kill: 31337: No such process\n", .status = 1}},
      {"its own group", "0", {.error = "kill: 0: No such process\n", .status = 1}},
      {"a word", "Finder", {.error = "kill: illegal process id: Finder\n", .status = 2}},
      {"a group", "-4411", {.error = "kill: illegal process id: -4411\n", .status = 2}},
      {"nothing", "", {.error = "kill: illegal process id: \n", .status = 2}},
      {"a number with a blank", "4411 ", {.error = "kill: illegal process id: 4411 \n", .status = 2}},
      {"more than a number holds",
       "99999999999999999999",
       {.error = "kill: illegal process id: 99999999999999999999\n", .status = 2}},
  };
  for (const auto& row : cases) expectAnswer(run({"kill", row.pid}), row.answer, row.name);
  EXPECT_EQ(run(processes()).output, filed("ps -ax -c -r -o pid,%cpu,rss,comm"));
}

TEST_F(MacState, numbersOfSixDigitsStayInTheirPlaces) {
  const SimulatedMac other(place_.file("other"), "m2-sonoma");
  EXPECT_EQ(run(other, {"kill", "612"}).status, 0);
  EXPECT_EQ(run(other, processes()).output,
            withoutPart(contentOf(other.folder() / "machine/ps -ax -c -r -o pid,%cpu,rss,comm"),
                        "  612  21.7 401224 com.apple.WebKit.WebContent\n"));
}

TEST_F(MacState, restartsAreRemembered) {
  expectAnswer(run({"shutdown", "-r", "14:05"}),
               {.output = filed("shutdown -r 14:05"), .error = filed("shutdown -r 14:05.stderr")},
               "as filed");
  expectAnswer(run({"shutdown", "-r", "00:59"}),
               {.output = "Shutdown at Tue Nov  5 00:59:00 2024.\n", .error = "shutdown: [pid 7731]\n"},
               "another time");
  for (const auto* time : {"24:00", "12:60", "1:00", "now", "12-30", "-1:30", ""}) {
    expectAnswer(run({"shutdown", "-r", time}), {.error = "shutdown: bad time format\n", .status = 1}, time);
  }
  EXPECT_EQ(mac_.restarts(), (Names{"14:05", "00:59"}));
}

// Home folders

TEST_F(MacState, removesAHomeFolderWithAllThatItHolds) {
  const auto home = mac_.users() / "temp-2022";
  fs::create_directories(home / "Library/Caches/deep er");
  std::ofstream(home / "Library/Caches/deep er/file") << "text";
  std::ofstream(home / ".hidden") << "text";
  fs::permissions(home / "Library", fs::perms::owner_all);
  fs::create_symlink("/nowhere", home / "broken link");
  ASSERT_EQ(mkfifo((home / "pipe").c_str(), 0600), 0);
  expectSilence({"rm", "-rf", "/Users/temp-2022/"});
  EXPECT_FALSE(fs::exists(home));
  EXPECT_EQ(mac_.homeFolders(), (Names{"Shared", "frontdesk", "itadmin"}));
  expectSilence({"rm", "-rf", "/Users/temp-2022/"});
}

TEST_F(MacState, removesNothingBehindASymbolicLink) {
  const fs::path outside = place_.file("outside");
  fs::create_directories(outside / "folder");
  std::ofstream(outside / "folder/file") << "text";
  fs::create_directory_symlink(outside, mac_.users() / "link");
  expectAnswer(run({"rm", "-rf", "/Users/link/"}),
               {.error = "rm: /Users/link/: Not a directory\n", .status = 1}, "a link in Users");
  fs::create_directory_symlink(outside, mac_.users() / "frontdesk/link");
  fs::create_hard_link(outside / "folder/file", mac_.users() / "frontdesk/same file");
  expectSilence({"rm", "-rf", "/Users/frontdesk/"});
  EXPECT_FALSE(fs::exists(mac_.users() / "frontdesk"));

  fs::rename(mac_.users(), mac_.folder() / "elsewhere");
  fs::create_directory_symlink(outside, mac_.users());
  expectAnswer(run({"rm", "-rf", "/Users/folder/"}),
               {.error = "rm: /Users/folder/: Not a directory\n", .status = 1}, "Users itself a link");
  EXPECT_EQ(contentOf(outside / "folder/file"), "text");
}

TEST_F(MacState, refusesEveryOtherRemoval) {
  const fs::path outside = place_.file("outside");
  fs::create_directory(outside);
  const std::string place = "/Users/../" + outside.filename().string() + "/";
  const std::string general =
      "rm: refused: the simulated Mac removes home folders only (rm -rf /Users/NAME/)\n";
  struct Case {
    std::string_view name;
    Words arguments;
    std::string error;
  };
  const Case cases[] = {
      {"without a slash at the end", {"-rf", "/Users/frontdesk"}, general},
      {"without options", {"/Users/frontdesk/"}, general},
      {"other options", {"-r", "-f", "/Users/frontdesk/"}, general},
      {"two folders", {"-rf", "/Users/frontdesk/", "/Users/itadmin/"}, general},
      {"another place", {"-rf", outside.string() + "/"}, general},
      {"nothing", {}, general},
      {"an empty path", {"-rf", ""}, general},
      {"the root directory", {"-rf", "/"}, general},
      {"a relative path", {"-rf", "Users/frontdesk/"}, general},
      {"Users itself", {"-rf", "/Users/"}, general},
      {"no name", {"-rf", "/Users//"}, "rm: /Users//: no home folder\n"},
      {"the folder itself", {"-rf", "/Users/./"}, "rm: /Users/./: no home folder\n"},
      {"its parent", {"-rf", "/Users/../"}, "rm: /Users/../: no home folder\n"},
      {"a way out", {"-rf", place}, "rm: " + place + ": no home folder\n"},
      {"a folder of a home", {"-rf", "/Users/frontdesk/x/"}, "rm: /Users/frontdesk/x/: no home folder\n"},
      {"a second slash", {"-rf", "/Users/frontdesk//"}, "rm: /Users/frontdesk//: no home folder\n"},
      {"a file", {"-rf", "/Users/.localized/"}, "rm: /Users/.localized/: Not a directory\n"},
  };
  const auto before = mac_.homeFolders();
  for (const auto& row : cases) {
    Words words = {"rm"};
    words.insert(words.end(), row.arguments.begin(), row.arguments.end());
    expectAnswer(run(words), {.error = row.error, .status = 1}, row.name);
  }
  EXPECT_EQ(mac_.homeFolders(), before);
  EXPECT_TRUE(fs::exists(outside));
  EXPECT_TRUE(fs::exists(mac_.users() / ".localized"));
}

// Tools that are spoilt as a whole

TEST_F(MacState, aToolFailsForEveryCommandLine) {
  mac_.failTool("launchctl", 78, "launchctl: broken\n");
  for (const Words& words :
       {Words{"launchctl", "list"}, Words{"launchctl", "bootout", "system/org.example.backup"},
        Words{"launchctl", "unheard-of"}}) {
    expectAnswer(run(words), {.error = "launchctl: broken\n", .status = 78}, words[1]);
  }
  EXPECT_EQ(mac_.loadedServices().size(), 10U) << "it changed nothing";
  mac_.answer("launchctl list", {.output = "chosen\n"});
  EXPECT_EQ(run({"launchctl", "list"}).output, "chosen\n") << "a chosen answer goes before";
  mac_.forgetAnswer("launchctl list");
  mac_.restoreTool("launchctl");
  EXPECT_EQ(run({"launchctl", "list"}).output, filed("launchctl list"));
  EXPECT_EQ(run({"df", "-k", "/"}).output, filed("df -k _"));
}

TEST_F(MacState, aToolPrintsGarbage) {
  const std::string garbage("\xff\xfe\0garbage", 10);
  mac_.failTool("sw_vers", 3, "replaced by what comes next");
  mac_.garbageTool("sw_vers", garbage);
  for (const Words& words : {Words{"sw_vers"}, Words{"sw_vers", "-x"}}) {
    expectAnswer(run(words), {.output = garbage}, "garbage");
  }
  mac_.garbageTool("which", "/usr/bin/nothing\n");
  EXPECT_EQ(run({"which", "df"}).output, "/usr/bin/nothing\n");
}

TEST_F(MacState, aSlowToolDoesItsWorkLater) {
  constexpr int kMilliseconds = 120;
  mac_.slowTool("sysadminctl", kMilliseconds);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(add("anna").status, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kMilliseconds));
  EXPECT_TRUE(isThere("anna"));
}

TEST_F(MacState, aToolHangsUntilItIsRestored) {
  mac_.holdTool("kill");
  RunningProgram first({mac_.tool("kill"), "5122"});
  RunningProgram second({mac_.tool("kill"), "5120"});
  EXPECT_TRUE(first.runs());
  EXPECT_TRUE(mac_.isRunning(5122));
  mac_.restoreTool("kill");
  EXPECT_EQ(first.wait().status, 0);
  EXPECT_EQ(second.wait().status, 0);
  EXPECT_FALSE(mac_.isRunning(5122));
  EXPECT_FALSE(mac_.isRunning(5120));
}

TEST_F(MacState, aToolHangsNoLongerThanTheMacLives) {
  auto other = std::make_unique<SimulatedMac>(place_.file("other"), "m2-sonoma");
  other->holdTool("sw_vers");
  RunningProgram tool({other->tool("sw_vers")});
  other.reset();
  EXPECT_EQ(tool.wait().status, 0);
}

TEST_F(MacState, aToolWithoutItsOtherHalfSaysSo) {
  fs::remove(mac_.folder() / "effects");
  expectAnswer(run({"kill", "5122"}), {.error = "mac-tool: cannot run <lab>/effects\n", .status = 2},
               "no effects");
}

}  // namespace
}  // namespace msp::test
