#pragma once

#include <string>
#include <vector>

#include "platform/task_runner.h"

/// Changes of one local account, through sysadminctl(8), dscl(1), pwpolicy(8) and dseditgroup(8).
///
/// Each operation answers with an empty text when it succeeded, else with the reason: the tool's own text, or
/// the agent's, which it has also logged. Names and passwords reach the tools unfiltered, each as one
/// argument. A runner is not for two threads at once.
namespace msp {

/// Blanks in the name become "_". The tool's text is answered whether it succeeded or not: that of a success
/// has "Creating home" in it.
std::string createUser(const std::string& name, const std::string& password, bool isAdmin,
                       TaskRunner& runner);

/// Not for an account with a secure token.
std::string resetPassword(const std::string& name, const std::string& password, TaskRunner& runner);

/// Asks the user for a new password at the next login. Takes every other policy from the account.
std::string requirePasswordChange(const std::string& name, TaskRunner& runner);

/// Not the only enabled administrator. Succeeds whatever the tool prints; that is logged.
std::string disableUser(const std::string& name, TaskRunner& runner);

/// Succeeds whatever the tool prints; that is logged.
std::string enableUser(const std::string& name, TaskRunner& runner);

std::string addToAdminGroup(const std::string& name, TaskRunner& runner);

/// Not the only enabled administrator.
std::string removeFromAdminGroup(const std::string& name, TaskRunner& runner);

/// Not the only enabled administrator. Leaves the home folder to the next listing of the users.
std::string deleteUser(const std::string& name, TaskRunner& runner);

/// The enabled administrators, "root" apart.
std::vector<std::string> getAdminUsers(TaskRunner& runner);

}  // namespace msp
