#include <string>

#include "jobs/account_operations.h"
#include "jobs/jobs_manager.h"

namespace msp {

JobResult JobsManager::createLocalUserAccount(const Job& job) const {
  const auto [id, arguments] = jobArguments(job);
  if (!arguments) {
    logJobProblem(job, "Unable to parse args for createNewUser command");
    return failure(id, "Error - unable to parse command to execute");
  }
  const auto name = stringValue(*arguments, "username");
  const auto password = stringValue(*arguments, "password");
  if (!name || !password) {
    logJobProblem(job, "Unable to find username & password");
    return failure(id, "Error - unable to extract username & password.");
  }
  const bool isAdmin = stringValue(*arguments, "is_admin") == "1";
  const std::string text = createUser(*name, *password, isAdmin, *host_->makeTaskRunner());
  if (!text.empty() && text.find("Creating home") == std::string::npos) {
    logJobProblem(job, "Unable to create new user: " + text);
    return failure(id, "Error - unable to create new user.");
  }
  return {.id = id, .message = "", .success = 1};
}

JobResult JobsManager::modifyLocalUserAccount(const Job& job) const {
  const auto [id, arguments] = jobArguments(job);
  if (!arguments) {
    logJobProblem(job, "Unable to parse args for modify_local_user_account");
    return failure(id, "Error - unable to parse modify_local_user_account");
  }
  const auto name = stringValue(*arguments, "username");
  if (!name) {
    logJobProblem(job, "Unable to find username for modify_local_user_account");
    return failure(id, "Error - unable to find username for modify_local_user_account");
  }
  const auto mode = stringValue(*arguments, "mode");
  if (!mode) {
    logJobProblem(job, "Unable to find mode for modify_local_user_account");
    return failure(id, "Error - unable to find mode for modify_local_user_account");
  }
  const bool newPasswordOnLogin = stringValue(*arguments, "new_password_on_login") == "1";
  const auto group = stringValue(*arguments, "group");
  const auto runner = host_->makeTaskRunner();

  std::string text;
  if (*mode == "reset_password") {
    const auto password = stringValue(*arguments, "password");
    text = password ? resetPassword(*name, *password, *runner)
                    : "Unable to find password for modify_local_user_account - reset_password";
  } else if (*mode == "enable") {
    text = enableUser(*name, *runner);
  } else if (*mode == "disable") {
    text = disableUser(*name, *runner);
  } else if (*mode == "delete") {
    text = deleteUser(*name, *runner);
  } else if (*mode == "add") {
    if (!group) {
      logJobProblem(job, "Unable to find group for modify_local_user_account - add");
      return failure(id, "Error - unable to find group for modify_local_user_account - add");
    }
    text = *group == "admin" ? addToAdminGroup(*name, *runner)
                             : "Not allowing any group edits except admin on macOS";
  } else if (*mode == "remove") {
    if (!group) {
      logJobProblem(job, "Unable to find group for modify_local_user_account - remove");
      return failure(id, "Error - unable to find group for modify_local_user_account - remove");
    }
    text = *group == "admin" ? removeFromAdminGroup(*name, *runner)
                             : "Not allowing any group edits except admin on macOS";
  } else {
    text = "unknown mode for modify_local_user_account";
  }

  if (!text.empty()) {
    logJobProblem(job, "Failed to edit " + *name);
    return failure(id, "Error - failed to edit " + *name + ": " + text);
  }
  if (newPasswordOnLogin) requirePasswordChange(*name, *host_->makeTaskRunner());
  return {.id = id, .message = "Success", .success = 1};
}

}  // namespace msp
