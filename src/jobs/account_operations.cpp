#include "jobs/account_operations.h"

#include <algorithm>
#include <string_view>

#include "jobs/local_user_listing.h"
#include "platform/event_log.h"
#include "platform/text.h"

namespace msp {
namespace {

bool userExists(const std::string& name, TaskRunner& runner) {
  return runner.runCommand("id", {name}).find("uid") != std::string::npos;
}

bool isOnlyAdmin(const std::string& name, TaskRunner& runner) {
  return getAdminUsers(runner) == std::vector<std::string>{name};
}

}  // namespace

std::string createUser(const std::string& name, const std::string& password, bool isAdmin,
                       TaskRunner& runner) {
  std::string newName = name;
  std::replace(newName.begin(), newName.end(), ' ', '_');
  if (userExists(newName, runner)) {
    logEvent("Cannot create user " + newName + ": user already exists.");
    return "cannot create user " + newName + ": user already exists.";
  }
  std::vector<std::string> arguments = {"-addUser", newName,         "-password",
                                        password,   "-passwordHint", "Ask Varnex to reset if you forget."};
  if (isAdmin) arguments.emplace_back("-admin");
  return runner.runCommandStreaming("sysadminctl", arguments);
}

std::string resetPassword(const std::string& name, const std::string& password, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot change password for " + name + ": user does not exist.");
    return "cannot change password for " + name + ": user does not exist.";
  }
  const std::string token = runner.runCommandStreaming("sysadminctl", {"-secureTokenStatus", name});
  if (token.find("ENABLED") != std::string::npos) {
    logEvent("Cannot change password for " + name + ": user has secure token status.");
    return "cannot change password for " + name + " remotely due to secure token. Request a password reset.";
  }
  return runner.runCommand("dscl", {".", "-passwd", "/Users/" + name, password});
}

std::string requirePasswordChange(const std::string& name, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot ask for password reset for " + name + ": user does not exist.");
    return "cannot ask for password reset for " + name + ": user does not exist.";
  }
  runner.runCommand("pwpolicy", {"-u", name, "-clearaccountpolicies"});
  return runner.runCommand("pwpolicy", {"-u", name, "-setpolicy", "newPasswordRequired=1"});
}

std::string disableUser(const std::string& name, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot disable " + name + ": user does not exist.");
    return "cannot disable " + name + ": user does not exist.";
  }
  if (isOnlyAdmin(name, runner)) {
    logEvent("Cannot disable " + name + ": this is the only admin user.");
    return "cannot disable " + name + ": this is the only admin user.";
  }
  const std::string output = runner.runCommand("pwpolicy", {"-u", name, "-disableuser"});
  logEvent("Disabled user " + name + ": " + output);
  return "";
}

std::string enableUser(const std::string& name, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot enable " + name + ": user does not exist.");
    return "cannot enable " + name + ": user does not exist.";
  }
  const std::string output = runner.runCommand("pwpolicy", {"-u", name, "-enableuser"});
  logEvent("Enabled user " + name + ": " + output);
  return "";
}

std::string addToAdminGroup(const std::string& name, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot set " + name + " as admin: user does not exist.");
    return "cannot set " + name + " as admin: user does not exist.";
  }
  return runner.runCommand("dseditgroup", {"-o", "edit", "-a", name, "-t", "user", "admin"});
}

std::string removeFromAdminGroup(const std::string& name, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot set " + name + " as standard: user does not exist.");
    return "cannot set " + name + " as standard: user does not exist.";
  }
  if (isOnlyAdmin(name, runner)) {
    logEvent("Cannot make " + name + " standard: this is the only admin user.");
    return "cannot make " + name + " standard: this is the only admin user.";
  }
  return runner.runCommand("dseditgroup", {"-o", "edit", "-d", name, "-t", "user", "admin"});
}

std::string deleteUser(const std::string& name, TaskRunner& runner) {
  if (!userExists(name, runner)) {
    logEvent("Cannot delete " + name + ": user does not exist.");
    return "cannot delete " + name + ": user does not exist.";
  }
  if (isOnlyAdmin(name, runner)) {
    logEvent("Cannot delete " + name + ": this is the only admin user.");
    return "cannot delete " + name + ": this is the only admin user.";
  }
  const std::string output = runner.runCommand("dscl", {".", "-delete", "/Users/" + name});
  if (!output.empty()) {
    logEvent("ERROR: deleting " + name + ": " + output);
    return "deleting " + name + ": " + output;
  }
  logEvent("Deleted user " + name);
  return "";
}

std::vector<std::string> getAdminUsers(TaskRunner& runner) {
  const std::string members = runner.runCommand("dscl", {".", "-read", "/Groups/admin", "GroupMembership"});
  std::vector<std::string> admins;
  for (const std::string_view piece : tokens(members)) {
    if (piece == "GroupMembership:" || piece == "root") continue;
    std::string name(piece);
    if (isAuthenticationAllowed(name, runner) && userExists(name, runner)) admins.push_back(std::move(name));
  }
  return admins;
}

}  // namespace msp
