#include "jobs/local_user_listing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <variant>

#include "jobs/jobs_manager.h"
#include "platform/console.h"
#include "platform/event_log.h"
#include "platform/text.h"
#include "platform/unicode.h"

namespace msp {
namespace {

constexpr std::int64_t kLastSystemUserID = 499;
constexpr const char* kStandardUsersGroupID = "20";  // staff's; fixed, on purpose

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// What follows the colon of a record's line, or stands on the line after it when nothing does.
std::string recordValue(const std::vector<std::string_view>& lines, std::size_t at) {
  const auto pieces = splitNonEmpty(lines[at], ':');
  if (pieces.size() >= 2) return std::string(trimWhiteSpaceAndNewlines(pieces[1]));
  if (at + 1 < lines.size()) return std::string(trimWhiteSpaceAndNewlines(lines[at + 1]));
  return "";
}

void removeHomeDirectory(const std::string& name, TaskRunner& runner) {
  const std::string output = runner.runCommand("rm", {"-rf", "/Users/" + name + "/"});
  if (output.empty()) {
    logEvent("Cleaning up home directory for deleted user " + name);
  } else {
    logEvent("ERROR: deleting home directory for " + name + ": " + output);
  }
}

}  // namespace

UsersAndGroups getLocalUsersAndGroups(const Host& host, TaskRunner& runner) {
  UsersAndGroups found;
  found.groups = getAgentGroups(runner);
  const auto admin = std::find_if(found.groups.begin(), found.groups.end(),
                                  [](const GroupData& group) { return group.name == "admin"; });
  found.users = readLocalUsers(true, admin == found.groups.end() ? "0" : admin->sid, runner);
  if (found.users.empty()) {
    // Most likely the directory tool has failed: no reason to remove every home folder.
    logEvent("Skipping home directory clean-up: no users listed");
    return found;
  }
  std::vector<std::string> names;
  names.reserve(found.users.size());
  for (const UserData& user : found.users) names.push_back(user.name);
  cleanUpOrphanHomeDirectories(names, host, runner);
  return found;
}

std::vector<GroupData> getAgentGroups(TaskRunner& runner) {
  const std::string idOutput = runner.runCommand("id", {"-G"});
  const std::string nameOutput = runner.runCommand("id", {"-Gn"});
  const auto ids = tokens(idOutput);
  const auto names = tokens(nameOutput);
  std::vector<GroupData> groups;
  // Paired by position alone.
  for (std::size_t i = 0; i < std::min(ids.size(), names.size()); ++i) {
    if (names[i] == "admin" || names[i] == "staff")
      groups.push_back({std::string(names[i]), std::string(ids[i])});
  }
  return groups;
}

std::vector<UserData> readLocalUsers(bool skipSystemAccounts, const std::string& adminGroupID,
                                     TaskRunner& runner) {
  const std::string output = runner.runCommandStreaming(
      "dscl", {".", "-readall", "Users", "UniqueID", "RecordName", "RealName", "PrimaryGroupID"});
  std::vector<UserData> users;
  std::vector<std::string_view> record;
  for (const std::string_view line : lines(output)) {
    if (!line.empty() && !line.starts_with("-")) {
      record.push_back(line);
      continue;
    }
    auto user = parseUserRecord(record, skipSystemAccounts, adminGroupID, runner);
    if (user) users.push_back(*std::move(user));
    record.clear();
  }
  return users;  // without what no line ended: the output was cut off
}

std::optional<UserData> parseUserRecord(const std::vector<std::string_view>& lines, bool skipSystemAccounts,
                                        const std::string& adminGroupID, TaskRunner& runner) {
  UserData user;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].starts_with("RealName:")) {
      user.full_name = recordValue(lines, i);
    } else if (lines[i].starts_with("RecordName:")) {
      const std::string value = recordValue(lines, i);
      user.name = trimWhiteSpaceAndNewlines(std::string_view(value).substr(0, value.find(' ')));
    } else if (lines[i].starts_with("UniqueID:")) {
      const auto pieces = splitNonEmpty(lines[i], ':');
      if (pieces.size() < 2) fatalError("A user record has no user ID behind its key");
      user.sid = trimWhiteSpaceAndNewlines(pieces[1]);
    }
  }
  if (user.sid.empty() || user.name.empty()) return std::nullopt;
  if (skipSystemAccounts) {
    const auto number = parseInteger(user.sid);
    if (number && *number <= kLastSystemUserID) return std::nullopt;
  }
  const auto groupIDs = getUserGroupIDs(user.name, runner);
  const bool isAdmin = std::find(groupIDs.begin(), groupIDs.end(), adminGroupID) != groupIDs.end();
  user.group_members = {{isAdmin ? adminGroupID : kStandardUsersGroupID}};
  user.enabled = isAuthenticationAllowed(user.name, runner);
  return user;
}

std::vector<std::string> getUserGroupIDs(const std::string& userName, TaskRunner& runner) {
  const std::string output = runner.runCommand("id", {"-G", userName});
  if (contains(output, "no such user")) return {};
  const auto pieces = tokens(output);
  if (pieces.empty() || !parseInteger(pieces.front())) return {};
  return {pieces.begin(), pieces.end()};
}

bool isAuthenticationAllowed(const std::string& userName, TaskRunner& runner) {
  const std::string output = runner.runCommand("pwpolicy", {"-u", userName, "-authentication-allowed"});
  return !contains(output, "disabled") && !contains(output, "Error");
}

void cleanUpOrphanHomeDirectories(const std::vector<std::string>& userNames, const Host& host,
                                  TaskRunner& runner) {
  std::set<std::string> kept = {"Shared"};
  for (const std::string& name : userNames) kept.insert(composedText(name));
  const auto found = host.visibleDirectories("/Users");
  if (const auto* error = std::get_if<FileError>(&found)) {
    logEvent("ERROR: listing /Users failed: " + error->description);
    return;
  }
  for (const std::string& name : std::get<std::vector<std::string>>(found)) {
    if (kept.contains(composedText(name))) continue;
    removeHomeDirectory(name, runner);
  }
}

JobResult JobsManager::listLocalUsers(const Job& job) const {
  const std::int64_t id = jobID(job);
  auto [users, groups] = getLocalUsersAndGroups(*host_, *host_->makeTaskRunner());
  if (users.empty()) {
    const std::string message = groups.empty() ? "No users or groups found." : "No users found.";
    logEvent(message);
    return failure(id, message);
  }
  if (groups.empty()) {
    logEvent("No groups found.");
    return failure(id, "No groups found.");
  }
  return {.id = id,
          .message = "",
          .success = 1,
          .local_users = std::move(users),
          .local_groups = std::move(groups)};
}

}  // namespace msp
