#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "jobs/local_accounts.h"
#include "platform/host.h"
#include "platform/task_runner.h"

/// The Mac's local accounts, through dscl(1), id(1) and pwpolicy(8). A tool that fails prints text that
/// parses to nothing. A runner is not for two threads at once.
namespace msp {

struct UsersAndGroups {
  std::vector<UserData> users;
  std::vector<GroupData> groups;
};
/// Lists the groups, then the users, and cleans up the home folders of none of these users; where not one
/// user is listed nothing is removed.
UsersAndGroups getLocalUsersAndGroups(const Host& host, TaskRunner& runner);

/// "admin" and "staff", as far as the agent's own process is in them.
std::vector<GroupData> getAgentGroups(TaskRunner& runner);

/// Every account; without the system's own (up to user ID 499) on demand.
std::vector<UserData> readLocalUsers(bool skipSystemAccounts, const std::string& adminGroupID,
                                     TaskRunner& runner);

/// One record of `dscl . -readall`, a line each: "Key: value", or "Key:" with the value on the next line,
/// after a blank. Nothing when it lacks a user ID or a short name, or is a system account and these are
/// skipped. Asks for the user's groups and whether he may log in. A user ID line that holds
/// nothing but its key and colons ends the process.
std::optional<UserData> parseUserRecord(const std::vector<std::string_view>& lines, bool skipSystemAccounts,
                                        const std::string& adminGroupID, TaskRunner& runner);

/// The numeric IDs of a user's groups; empty when there is no such user.
std::vector<std::string> getUserGroupIDs(const std::string& userName, TaskRunner& runner);

/// Whether the account may log in.
bool isAuthenticationAllowed(const std::string& userName, TaskRunner& runner);

/// Removes each visible directory of /Users that is named like none of the users, "Shared" apart: those of
/// the system's own accounts too, which are not listed. Failures are logged.
void cleanUpOrphanHomeDirectories(const std::vector<std::string>& userNames, const Host& host,
                                  TaskRunner& runner);

}  // namespace msp
