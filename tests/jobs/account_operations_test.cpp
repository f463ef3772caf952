#include "jobs/account_operations.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/fake_task_runner.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kMembers = "dscl . -read /Groups/admin GroupMembership";

class AccountOperations : public testing::Test {
 protected:
  void addAccount(const std::string& name) {
    runner_.answer("id " + name, "uid=501(" + name + ") gid=20(staff)");
  }
  void addOnlyAdmin(const std::string& name) {
    addAccount(name);
    runner_.answer(kMembers, "GroupMembership: root " + name);
  }

  test::FakeTaskRunner runner_;
  test::CapturedLog log_;
};

TEST_F(AccountOperations, whoDoesNotExistIsNotChanged) {
  struct Case {
    std::string answer, line;
  };
  const std::vector<std::pair<Case, std::string>> cases = {
      {{"cannot change password for ana: user does not exist.",
        "Cannot change password for ana: user does not exist."},
       resetPassword("ana", "pw", runner_)},
      {{"cannot ask for password reset for ana: user does not exist.",
        "Cannot ask for password reset for ana: user does not exist."},
       requirePasswordChange("ana", runner_)},
      {{"cannot disable ana: user does not exist.", "Cannot disable ana: user does not exist."},
       disableUser("ana", runner_)},
      {{"cannot enable ana: user does not exist.", "Cannot enable ana: user does not exist."},
       enableUser("ana", runner_)},
      {{"cannot set ana as admin: user does not exist.", "Cannot set ana as admin: user does not exist."},
       addToAdminGroup("ana", runner_)},
      {{"cannot set ana as standard: user does not exist.",
        "Cannot set ana as standard: user does not exist."},
       removeFromAdminGroup("ana", runner_)},
      {{"cannot delete ana: user does not exist.", "Cannot delete ana: user does not exist."},
       deleteUser("ana", runner_)},
  };
  Lines expectedLines;
  for (const auto& [expected, answer] : cases) {
    EXPECT_EQ(answer, expected.answer);
    expectedLines.push_back(expected.line);
  }
  EXPECT_EQ(log_.messages(), expectedLines);
  EXPECT_EQ(runner_.commandLines(), Lines(cases.size(), "id ana")) << "nothing but the look-up ran";
}

TEST_F(AccountOperations, anAccountExistsWhenItsUserIDIsPrinted) {
  runner_.answer("id ana", "gid=20(staff)");
  EXPECT_EQ(enableUser("ana", runner_), "cannot enable ana: user does not exist.");
  runner_.answer("id ana", "euid");
  EXPECT_EQ(enableUser("ana", runner_), "");
}

TEST_F(AccountOperations, anAccountIsCreatedWithAHint) {
  const std::string command =
      "sysadminctl -addUser ana -password 'pw 1' -passwordHint 'Ask Varnex to reset if you forget.'";
  runner_.answer(command, "Creating home directory at /Users/ana\n");
  EXPECT_EQ(createUser("ana", "pw 1", false, runner_), "Creating home directory at /Users/ana\n");
  EXPECT_EQ(createUser("ana", "pw 1", true, runner_), "");
  EXPECT_EQ(runner_.commandLines(),
            (Lines{"id ana", "streaming " + command, "id ana", "streaming " + command + " -admin"}));
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(AccountOperations, blanksInANewNameBecomeUnderscores) {
  EXPECT_EQ(createUser(" John  Smith\t\u00A0", "p w", false, runner_), "");
  EXPECT_EQ(runner_.commandLines(),
            (Lines{"id _John__Smith\t\u00A0",
                   "streaming sysadminctl -addUser _John__Smith\t\u00A0 -password 'p w' -passwordHint 'Ask "
                   "Varnex to reset if you forget.'"}));
}

TEST_F(AccountOperations, whoExistsIsNotCreated) {
  addAccount("John_Smith");
  EXPECT_EQ(createUser("John Smith", "pw", true, runner_),
            "cannot create user John_Smith: user already exists.");
  EXPECT_EQ(runner_.commandLines(), Lines{"id John_Smith"});
  EXPECT_EQ(log_.messages(), Lines{"Cannot create user John_Smith: user already exists."});
}

TEST_F(AccountOperations, aPasswordIsResetWithoutSecureToken) {
  addAccount("ana");
  runner_.answer("sysadminctl -secureTokenStatus ana", "Secure token is DISABLED for user Ana\n");
  EXPECT_EQ(resetPassword("ana", "new", runner_), "");
  runner_.answer("dscl . -passwd /Users/ana new", "passwd: DS error: eDSAuthFailed");
  EXPECT_EQ(resetPassword("ana", "new", runner_), "passwd: DS error: eDSAuthFailed");
  const Lines once = {"id ana", "streaming sysadminctl -secureTokenStatus ana",
                      "dscl . -passwd /Users/ana new"};
  Lines twice = once;
  twice.insert(twice.end(), once.begin(), once.end());
  EXPECT_EQ(runner_.commandLines(), twice);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(AccountOperations, aPasswordBehindASecureTokenIsNotReset) {
  addAccount("ana");
  runner_.answer("sysadminctl -secureTokenStatus ana", "Secure token is ENABLED for user Ana\n");
  EXPECT_EQ(resetPassword("ana", "new", runner_),
            "cannot change password for ana remotely due to secure token. Request a password reset.");
  EXPECT_EQ(runner_.commandLines(), (Lines{"id ana", "streaming sysadminctl -secureTokenStatus ana"}));
  EXPECT_EQ(log_.messages(), Lines{"Cannot change password for ana: user has secure token status."});
}

TEST_F(AccountOperations, aNewPasswordIsAskedForAfterThePoliciesAreCleared) {
  addAccount("ana");
  runner_.answer("pwpolicy -u ana -clearaccountpolicies", "Clearing");
  runner_.answer("pwpolicy -u ana -setpolicy newPasswordRequired=1", "Setting policy for ana");
  EXPECT_EQ(requirePasswordChange("ana", runner_), "Setting policy for ana");
  EXPECT_EQ(runner_.commandLines(), (Lines{"id ana", "pwpolicy -u ana -clearaccountpolicies",
                                           "pwpolicy -u ana -setpolicy newPasswordRequired=1"}));
}

TEST_F(AccountOperations, theEnabledAdministratorsInOrder) {
  runner_.answer(kMembers, "GroupMembership: root ana\tdisabled\nlocked ghost bea");
  for (const std::string name : {"ana", "disabled", "locked", "bea"}) addAccount(name);
  runner_.answer("pwpolicy -u disabled -authentication-allowed", "User <disabled> ...: Account is disabled");
  runner_.answer("pwpolicy -u locked -authentication-allowed", "Error: user locked was not found.");
  EXPECT_EQ(getAdminUsers(runner_), (Lines{"ana", "bea"}));
  EXPECT_EQ(runner_.commandLines(),
            (Lines{kMembers, "pwpolicy -u ana -authentication-allowed", "id ana",
                   "pwpolicy -u disabled -authentication-allowed",
                   "pwpolicy -u locked -authentication-allowed", "pwpolicy -u ghost -authentication-allowed",
                   "id ghost", "pwpolicy -u bea -authentication-allowed", "id bea"}));
}

TEST_F(AccountOperations, theOnlyEnabledAdministratorStays) {
  addOnlyAdmin("ana");
  const Lines guard = {"id ana", kMembers, "pwpolicy -u ana -authentication-allowed", "id ana"};

  EXPECT_EQ(disableUser("ana", runner_), "cannot disable ana: this is the only admin user.");
  EXPECT_EQ(runner_.commandLines(), guard);
  runner_.forgetCommandLines();
  EXPECT_EQ(removeFromAdminGroup("ana", runner_), "cannot make ana standard: this is the only admin user.");
  EXPECT_EQ(runner_.commandLines(), guard);
  runner_.forgetCommandLines();
  EXPECT_EQ(deleteUser("ana", runner_), "cannot delete ana: this is the only admin user.");
  EXPECT_EQ(runner_.commandLines(), guard);

  EXPECT_EQ(log_.messages(), (Lines{"Cannot disable ana: this is the only admin user.",
                                    "Cannot make ana standard: this is the only admin user.",
                                    "Cannot delete ana: this is the only admin user."}));
}

TEST_F(AccountOperations, theGuardLooksAtOneNameExactly) {
  struct Case {
    std::string name, members;
    bool refused;
  };
  const Case cases[] = {
      {"a second enabled administrator", "GroupMembership: root ana bea", false},
      {"another one is the only one", "GroupMembership: root bea", false},
      {"there is none", "No such key: GroupMembership", false},
      {"nothing was printed", "", false},
      {"the second one is disabled", "GroupMembership: root ana off", true},
      {"the second one has no account", "GroupMembership: ana ghost", true},
      {"the same name twice is two", "GroupMembership: ana ana", false},
      {"a longer name", "GroupMembership: root anabel", false},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    for (const std::string name : {"ana", "bea", "off", "anabel"}) runner.answer("id " + name, "uid=501");
    runner.answer("pwpolicy -u off -authentication-allowed", "disabled");
    runner.answer(kMembers, row.members);
    EXPECT_EQ(disableUser("ana", runner),
              row.refused ? "cannot disable ana: this is the only admin user." : "")
        << row.name;
    EXPECT_EQ(runner.ran("pwpolicy -u ana -disableuser"), !row.refused) << row.name;
  }
}

TEST_F(AccountOperations, disablingAndEnablingSucceedWhateverIsPrinted) {
  addAccount("ana");
  EXPECT_EQ(disableUser("ana", runner_), "");
  runner_.answer("pwpolicy -u ana -disableuser", "no rights");
  EXPECT_EQ(disableUser("ana", runner_), "");
  EXPECT_EQ(enableUser("ana", runner_), "");
  runner_.answer("pwpolicy -u ana -enableuser", "no rights");
  EXPECT_EQ(enableUser("ana", runner_), "");
  EXPECT_EQ(runner_.commandLines(),
            (Lines{"id ana", kMembers, "pwpolicy -u ana -disableuser", "id ana", kMembers,
                   "pwpolicy -u ana -disableuser", "id ana", "pwpolicy -u ana -enableuser", "id ana",
                   "pwpolicy -u ana -enableuser"}));
  EXPECT_EQ(log_.messages(), (Lines{"Disabled user ana: ", "Disabled user ana: no rights",
                                    "Enabled user ana: ", "Enabled user ana: no rights"}));
}

TEST_F(AccountOperations, anAdministratorIsMadeAndUnmade) {
  addAccount("ana");
  EXPECT_EQ(addToAdminGroup("ana", runner_), "");
  EXPECT_EQ(removeFromAdminGroup("ana", runner_), "");
  EXPECT_EQ(runner_.commandLines(), (Lines{"id ana", "dseditgroup -o edit -a ana -t user admin", "id ana",
                                           kMembers, "dseditgroup -o edit -d ana -t user admin"}));
  runner_.answer("dseditgroup -o edit -a ana -t user admin", "denied");
  runner_.answer("dseditgroup -o edit -d ana -t user admin", "denied too");
  EXPECT_EQ(addToAdminGroup("ana", runner_), "denied");
  EXPECT_EQ(removeFromAdminGroup("ana", runner_), "denied too");
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(AccountOperations, anAccountIsDeletedWhenTheToolIsSilent) {
  addAccount("ana");
  EXPECT_EQ(deleteUser("ana", runner_), "");
  EXPECT_EQ(runner_.commandLines(), (Lines{"id ana", kMembers, "dscl . -delete /Users/ana"}));
  runner_.answer("dscl . -delete /Users/ana", "delete: Invalid Path");
  EXPECT_EQ(deleteUser("ana", runner_), "deleting ana: delete: Invalid Path");
  EXPECT_EQ(log_.messages(), (Lines{"Deleted user ana", "ERROR: deleting ana: delete: Invalid Path"}));
}

TEST_F(AccountOperations, aNameThatLooksLikeAnOptionReachesTheToolAsItCame) {
  EXPECT_EQ(enableUser("-p", runner_), "cannot enable -p: user does not exist.");
  EXPECT_EQ(runner_.commandLines(), Lines{"id -p"});
}

}  // namespace
}  // namespace msp
