#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "jobs/jobs_manager.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kCreate =
    "sysadminctl -addUser ana -password pw -passwordHint 'Ask Varnex to reset if you forget.'";

class AccountJobs : public testing::Test {
 protected:
  AccountJobs() { host_.runner().answer("id bea", "uid=502(bea)"); }

  static Job job(const std::string& type, const Json& arguments) {
    return Job{{"id", "7"}, {"type", type}, {"arguments", arguments.dump()}};
  }
  JobResult create(const Json& arguments) {
    return jobs_.createLocalUserAccount(job("create_local_user_account", arguments));
  }
  JobResult modify(const Json& arguments) {
    return jobs_.modifyLocalUserAccount(job("modify_local_user_account", arguments));
  }
  static JobResult answer(std::string message, std::int64_t success) {
    return {.id = 7, .message = std::move(message), .success = success};
  }

  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
  JobsManager jobs_{host_, http_};
};

TEST_F(AccountJobs, onlyTheTextOneMakesAnAdministrator) {
  const Json values[] = {"1", "0", "true", "", 1, true, nullptr};
  for (const Json& value : values) {
    host_.runner().forgetCommandLines();
    EXPECT_EQ(create({{"username", "ana"}, {"password", "pw"}, {"is_admin", value}}), answer("", 1));
    const bool isAdmin = value == Json("1");
    EXPECT_EQ(host_.runner().commandLines(),
              (Lines{"id ana", std::string("streaming ") + kCreate + (isAdmin ? " -admin" : "")}))
        << value;
  }
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(AccountJobs, aNewAccountIsJudgedByTheToolsText) {
  struct Case {
    std::string name, output;
    bool succeeds;
  };
  const Case cases[] = {
      {"silence", "", true},
      {"a home is created",
       "2024-11-05 sysadminctl[1:2] Creating user record\u2026\nCreating home directory at /Users/ana\n",
       true},
      {"a home is not created", "Home directory is assigned (not created!) at /Users/ana\n", false},
      {"in small letters it is not the text", "creating home", false},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    host_.runner().answer(kCreate, row.output);
    EXPECT_EQ(create({{"username", "ana"}, {"password", "pw"}}),
              row.succeeds ? answer("", 1) : answer("Error - unable to create new user.", 0))
        << row.name;
    EXPECT_EQ(log.messages(), row.succeeds ? Lines{}
                                           : Lines{"Unable to create new user: " + row.output +
                                                   ": create_local_user_account: "
                                                   R"(["username": "ana", "password": "pw"])"})
        << row.name;
  }
}

TEST_F(AccountJobs, anExistingAccountIsNotCreated) {
  EXPECT_EQ(create({{"username", "bea"}, {"password", "pw"}}),
            answer("Error - unable to create new user.", 0));
  EXPECT_EQ(log_.messages(),
            (Lines{"Cannot create user bea: user already exists.",
                   "Unable to create new user: cannot create user bea: user already exists.: "
                   R"(create_local_user_account: ["username": "bea", "password": "pw"])"}));
  EXPECT_EQ(host_.runner().commandLines(), Lines{"id bea"});
}

TEST_F(AccountJobs, withoutNameAndPasswordNothingIsCreated) {
  struct Case {
    std::string name;
    Job job;
    std::string message;
    std::string line;
  };
  const std::string type = "create_local_user_account";
  const Case cases[] = {
      {"no arguments", Job{{"id", "7"}, {"type", type}}, "Error - unable to parse command to execute",
       "Unable to parse args for createNewUser command: create_local_user_account"},
      {"an empty object", job(type, Json::object()), "Error - unable to extract username & password.",
       "Unable to find username & password: create_local_user_account: [:]"},
      {"no password", job(type, {{"username", "ana"}}), "Error - unable to extract username & password.",
       R"(Unable to find username & password: create_local_user_account: ["username": "ana"])"},
      {"no name", job(type, {{"password", "pw"}}), "Error - unable to extract username & password.",
       R"(Unable to find username & password: create_local_user_account: ["password": "pw"])"},
      {"numbers", job(type, {{"username", 1}, {"password", 2}}),
       "Error - unable to extract username & password.",
       R"(Unable to find username & password: create_local_user_account: ["username": 1, "password": 2])"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    EXPECT_EQ(jobs_.createLocalUserAccount(row.job), answer(row.message, 0)) << row.name;
    EXPECT_EQ(log.messages(), Lines{row.line}) << row.name;
  }
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
}

TEST_F(AccountJobs, eachModeRunsItsOwnCommands) {
  struct Case {
    Json arguments;
    Lines commands;
    Lines log;
  };
  const std::string members = "dscl . -read /Groups/admin GroupMembership";
  const Case cases[] = {
      {{{"mode", "reset_password"}, {"password", "new"}},
       {"id bea", "streaming sysadminctl -secureTokenStatus bea", "dscl . -passwd /Users/bea new"},
       {}},
      {{{"mode", "enable"}}, {"id bea", "pwpolicy -u bea -enableuser"}, {"Enabled user bea: "}},
      {{{"mode", "disable"}}, {"id bea", members, "pwpolicy -u bea -disableuser"}, {"Disabled user bea: "}},
      {{{"mode", "delete"}}, {"id bea", members, "dscl . -delete /Users/bea"}, {"Deleted user bea"}},
      {{{"mode", "add"}, {"group", "admin"}}, {"id bea", "dseditgroup -o edit -a bea -t user admin"}, {}},
      {{{"mode", "remove"}, {"group", "admin"}},
       {"id bea", members, "dseditgroup -o edit -d bea -t user admin"},
       {}},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    host_.runner().forgetCommandLines();
    Json arguments{{"username", "bea"}};
    arguments.update(row.arguments);
    EXPECT_EQ(modify(arguments), answer("Success", 1)) << arguments;
    EXPECT_EQ(host_.runner().commandLines(), row.commands) << arguments;
    EXPECT_EQ(log.messages(), row.log) << arguments;

    host_.runner().forgetCommandLines();
    arguments["new_password_on_login"] = "1";
    EXPECT_EQ(modify(arguments), answer("Success", 1)) << arguments;
    Lines withPassword = row.commands;
    withPassword.insert(withPassword.end(), {"id bea", "pwpolicy -u bea -clearaccountpolicies",
                                             "pwpolicy -u bea -setpolicy newPasswordRequired=1"});
    EXPECT_EQ(host_.runner().commandLines(), withPassword) << arguments;
  }
}

TEST_F(AccountJobs, whyAnAccountWasNotChanged) {
  struct Case {
    std::string name;
    Json arguments;
    std::string reason;
  };
  host_.runner().answer("dseditgroup -o edit -a bea -t user admin", "denied");
  const Case cases[] = {
      {"no password",
       {{"mode", "reset_password"}},
       "Unable to find password for modify_local_user_account - reset_password"},
      {"a password that is a number",
       {{"mode", "reset_password"}, {"password", 5}},
       "Unable to find password for modify_local_user_account - reset_password"},
      {"another group to add to",
       {{"mode", "add"}, {"group", "staff"}},
       "Not allowing any group edits except admin on macOS"},
      {"another group to remove from",
       {{"mode", "remove"}, {"group", "Admin"}},
       "Not allowing any group edits except admin on macOS"},
      {"a mode in other letters", {{"mode", "Enable"}}, "unknown mode for modify_local_user_account"},
      {"no mode at all", {{"mode", ""}}, "unknown mode for modify_local_user_account"},
      {"what the tool said", {{"mode", "add"}, {"group", "admin"}}, "denied"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    Json arguments{{"username", "bea"}, {"new_password_on_login", "1"}};
    arguments.update(row.arguments);
    EXPECT_EQ(modify(arguments), answer("Error - failed to edit bea: " + row.reason, 0)) << row.name;
    EXPECT_EQ(log.messages(),
              Lines{"Failed to edit bea: modify_local_user_account: " + printedForm(arguments)})
        << row.name;
  }
  EXPECT_EQ(host_.runner().commandLines(), (Lines{"id bea", "dseditgroup -o edit -a bea -t user admin"}));
}

TEST_F(AccountJobs, theReasonOfAnOperationIsPassedOn) {
  EXPECT_EQ(modify({{"username", "ana"}, {"mode", "enable"}}),
            answer("Error - failed to edit ana: cannot enable ana: user does not exist.", 0));
  EXPECT_EQ(
      log_.messages(),
      (Lines{"Cannot enable ana: user does not exist.",
             R"(Failed to edit ana: modify_local_user_account: ["username": "ana", "mode": "enable"])"}));

  host_.runner().answer("sysadminctl -secureTokenStatus bea", "Secure token is ENABLED for user Bea");
  EXPECT_EQ(modify({{"username", "bea"}, {"mode", "reset_password"}, {"password", "new"}}),
            answer("Error - failed to edit bea: cannot change password for bea remotely due to secure token. "
                   "Request a password reset.",
                   0));
}

TEST_F(AccountJobs, whatIsMissingIsNamed) {
  struct Case {
    std::string name;
    Job job;
    std::string message;
    std::string line;
  };
  const std::string type = "modify_local_user_account";
  const Case cases[] = {
      {"no arguments", Job{{"id", "7"}, {"type", type}}, "Error - unable to parse modify_local_user_account",
       "Unable to parse args for modify_local_user_account: modify_local_user_account"},
      {"an empty object", job(type, Json::object()),
       "Error - unable to find username for modify_local_user_account",
       "Unable to find username for modify_local_user_account: modify_local_user_account: [:]"},
      {"a name that is a number", job(type, {{"username", 5}}),
       "Error - unable to find username for modify_local_user_account",
       R"(Unable to find username for modify_local_user_account: modify_local_user_account: ["username": 5])"},
      {"no mode", job(type, {{"username", "bea"}}),
       "Error - unable to find mode for modify_local_user_account",
       "Unable to find mode for modify_local_user_account: modify_local_user_account: "
       R"(["username": "bea"])"},
      {"a mode that is none", job(type, {{"username", "bea"}, {"mode", nullptr}}),
       "Error - unable to find mode for modify_local_user_account",
       "Unable to find mode for modify_local_user_account: modify_local_user_account: "
       R"(["username": "bea", "mode": <null>])"},
      {"no group to add to", job(type, {{"username", "bea"}, {"mode", "add"}}),
       "Error - unable to find group for modify_local_user_account - add",
       "Unable to find group for modify_local_user_account - add: modify_local_user_account: "
       R"(["username": "bea", "mode": "add"])"},
      {"no group, with a new password to be asked for",
       job(type, {{"username", "bea"}, {"mode", "add"}, {"new_password_on_login", "1"}}),
       "Error - unable to find group for modify_local_user_account - add",
       "Unable to find group for modify_local_user_account - add: modify_local_user_account: "
       R"(["username": "bea", "mode": "add", "new_password_on_login": "1"])"},
      {"a group to remove from that is a number",
       job(type, {{"username", "bea"}, {"mode", "remove"}, {"group", 80}}),
       "Error - unable to find group for modify_local_user_account - remove",
       "Unable to find group for modify_local_user_account - remove: modify_local_user_account: "
       R"(["username": "bea", "mode": "remove", "group": 80])"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    EXPECT_EQ(jobs_.modifyLocalUserAccount(row.job), answer(row.message, 0)) << row.name;
    EXPECT_EQ(log.messages(), Lines{row.line}) << row.name;
  }
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
}

TEST_F(AccountJobs, aNewPasswordIsAskedForAfterTheChangeAndItsOutcomeIsIgnored) {
  host_.runner().answer("pwpolicy -u bea -setpolicy newPasswordRequired=1", "no rights");
  EXPECT_EQ(modify({{"username", "bea"}, {"mode", "enable"}, {"new_password_on_login", "1"}}),
            answer("Success", 1));
  EXPECT_EQ(host_.runnersMade(), 2) << "a fresh one for each operation";
  EXPECT_EQ(host_.runner().commandLines(),
            (Lines{"id bea", "pwpolicy -u bea -enableuser", "id bea", "pwpolicy -u bea -clearaccountpolicies",
                   "pwpolicy -u bea -setpolicy newPasswordRequired=1"}));
  for (const Json& value : {Json(1), Json(true), Json("0"), Json("yes")}) {
    host_.runner().forgetCommandLines();
    EXPECT_EQ(modify({{"username", "bea"}, {"mode", "enable"}, {"new_password_on_login", value}}),
              answer("Success", 1));
    EXPECT_EQ(host_.runner().commandLines(), (Lines{"id bea", "pwpolicy -u bea -enableuser"})) << value;
  }
}

}  // namespace
}  // namespace msp
