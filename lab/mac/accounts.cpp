#include "mac/accounts.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <utility>

#include "mac/home_folders.h"
#include "mac/text.h"

namespace msp::lab {

namespace {

// Samples that are printed for other names too.
constexpr std::string_view kMissingName = "nosuchuser";
constexpr std::string_view kListing = "dscl . -readall Users UniqueID RecordName RealName PrimaryGroupID";
constexpr std::string_view kMembership = "dscl . -read /Groups/admin GroupMembership";
constexpr std::string_view kAddition =
    "sysadminctl -addUser newhire -password Pa55-word -passwordHint Ask Varnex to reset if you forget.";
constexpr std::string_view kAddedName = "newhire";
constexpr std::string_view kAssigning = "Assigning UID: ";
constexpr std::string_view kDisabledReason = "Account is disabled";

constexpr std::int64_t kFirstUserID = 501;

// What id(1) says of the groups that come and go; the rest is what it says of a standard account.
constexpr std::string_view kAdminGroup = "80(admin)";
constexpr std::string_view kLocalAccountsGroup = "61(localaccounts)";
constexpr std::string_view kDisabledGroup = "396(com.apple.access_disabled)";
constexpr std::string_view kStandardGroups =
    "20(staff),12(everyone),61(localaccounts),701(com.apple.sharepoint.group.1),100(_lpoperator)";

struct Record {
  std::string name;
  std::int64_t uid = 0;
  std::string text;  // its lines in the listing
};

std::int64_t numberIn(std::string_view text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// The values of a key in dscl(1)'s form: in the key's line, or in lines of their own when one holds a blank.
std::string attribute(std::string_view key, const std::vector<std::string>& values) {
  const bool apart = std::any_of(values.begin(), values.end(), [](const std::string& value) {
    return value.find(' ') != std::string::npos;
  });
  std::string text = std::string(key) + ":";
  for (const auto& value : values) text += (apart ? "\n " : " ") + value;
  return text + "\n";
}

void readAttribute(Record& record, const std::vector<std::string>& lines, std::size_t at) {
  constexpr std::string_view kName = "RecordName:", kID = "UniqueID: ";
  const std::string_view line = lines[at];
  if (line.starts_with(kID)) record.uid = numberIn(line.substr(kID.size()));
  if (!line.starts_with(kName)) return;
  if (const auto names = split(line.substr(kName.size()), ' '); !names.empty()) {
    record.name = names.front();
  } else if (at + 1 < lines.size()) {
    record.name = lines[at + 1].substr(1);
  }
}

Record parseRecord(const std::vector<std::string>& lines) {
  Record record;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    readAttribute(record, lines, i);
    record.text += lines[i] + "\n";
  }
  return record;
}

std::vector<Record> machineRecords(const Machine& machine) {
  std::vector<Record> records;
  std::vector<std::string> lines;
  const auto finish = [&] {
    if (!lines.empty()) records.push_back(parseRecord(lines));
    lines.clear();
  };
  for (auto& line : split(machine.sample(kListing).output, '\n')) {
    if (line == "-") {
      finish();
    } else {
      lines.push_back(std::move(line));
    }
  }
  finish();
  return records;
}

Record recordOf(const AddedAccount& account) {
  return {account.name, account.uid,
          "PrimaryGroupID: 20\n" + attribute("RealName", {account.name}) +
              attribute("RecordName", {account.name}) + "UniqueID: " + std::to_string(account.uid) + "\n"};
}

std::vector<Record> recordsOf(const Machine& machine) {
  auto records = machineRecords(machine);
  std::erase_if(records,
                [&](const Record& record) { return machine.state.removed_accounts.contains(record.name); });
  for (const auto& account : machine.state.added_accounts) records.push_back(recordOf(account));
  return records;
}

bool exists(const Machine& machine, const std::string& name) {
  const auto names = accountNames(machine);
  return std::find(names.begin(), names.end(), name) != names.end();
}

const AddedAccount* findAdded(const Machine& machine, const std::string& name) {
  const auto& added = machine.state.added_accounts;
  const auto found = std::find_if(added.begin(), added.end(),
                                  [&name](const AddedAccount& account) { return account.name == name; });
  return found == added.end() ? nullptr : &*found;
}

/// What the machine's files say of an account of its own; nothing for an added one of the same name.
MaybeAnswer filedFor(const Machine& machine, const std::string& name, std::string_view commandLine) {
  if (findAdded(machine, name) != nullptr) return std::nullopt;
  return machine.filed(commandLine);
}

/// What the machine says of a missing account, from the command line that asks for the missing name.
Answer missing(const Machine& machine, std::string_view commandLine, const std::string& name) {
  auto answer = machine.sample(commandLine);
  answer.output = replaced(answer.output, kMissingName, name);
  answer.error = replaced(answer.error, kMissingName, name);
  return answer;
}

bool isRefusal(const MaybeAnswer& answer) {
  return answer && (answer->status != 0 || !answer->output.empty());
}

std::vector<std::string> administrators(const Machine& machine) {
  constexpr std::string_view kKey = "GroupMembership: ";
  auto line = machine.sample(kMembership).output;
  if (!line.empty() && line.back() == '\n') line.pop_back();
  std::vector<std::string> members;
  for (const auto& name : split(line.substr(std::min(kKey.size(), line.size())), ' ')) {
    if (machine.state.removed_accounts.contains(name)) continue;
    if (changeOf(machine, name).admin.value_or(true)) members.push_back(name);
  }
  for (const auto& name : accountNames(machine)) {
    const bool listed = std::find(members.begin(), members.end(), name) != members.end();
    if (!listed && changeOf(machine, name).admin.value_or(false)) members.push_back(name);
  }
  return members;
}

std::int64_t freeUserID(const Machine& machine, std::int64_t preferred) {
  std::set<std::int64_t> taken;
  for (const auto& record : recordsOf(machine)) taken.insert(record.uid);
  if (preferred >= kFirstUserID && !taken.contains(preferred)) return preferred;
  auto uid = kFirstUserID;
  while (taken.contains(uid)) ++uid;
  return uid;
}

/// The number behind "Assigning UID: "; 0 when there is none.
std::int64_t assignedUserID(std::string_view log) {
  const auto at = log.find(kAssigning);
  return at == std::string_view::npos ? 0 : numberIn(log.substr(at + kAssigning.size()));
}

Answer refusedAddition(const std::string& reason) {
  return {.error = "2024-11-05 09:15:10.120 sysadminctl[2290:20411] Error: " + reason + "\n", .status = 1};
}

MaybeAnswer addAccount(Machine& machine, const Request& request, bool admin) {
  const auto& name = request.captures[0];
  if (!isPlainName(name) || name.starts_with('-'))
    return refusedAddition("\"" + name + "\" is no name for an account");
  if (exists(machine, name)) return refusedAddition("an account named \"" + name + "\" exists already");

  // A command line that the machine has filed keeps its number as long as that is free.
  const auto uid = freeUserID(machine, assignedUserID(machine.sample(request.commandLine).error));
  auto log = machine.sample(kAddition).error;
  const auto sampleID = std::string(kAssigning) + std::to_string(assignedUserID(log));
  log = replaced(log, sampleID, std::string(kAssigning) + std::to_string(uid));
  log = replaced(log, "/Users/" + std::string(kAddedName), "/Users/" + name);
  // Newer systems say that they leave the folder to the first login.
  if (log.find("(not created!)") == std::string::npos) createHomeFolder(machine.lab(), name);

  machine.state.added_accounts.push_back({name, uid});
  machine.state.account_changes[name] = {.password = request.captures[1], .admin = admin, .enabled = {}};
  return Answer{.error = log};
}

MaybeAnswer changeMembership(Machine& machine, const Request& request, bool admin) {
  const auto& name = request.captures[0];
  if (!exists(machine, name))
    return missing(machine, "dseditgroup -o edit -a nosuchuser -t user admin", name);
  if (auto filed = filedFor(machine, name, request.commandLine); isRefusal(filed)) return filed;
  machine.state.account_changes[name].admin = admin;
  return Answer{};
}

/// Makes a policy's change and prints what the machine prints for it.
template <typename Change>
MaybeAnswer changePolicy(Machine& machine, const Request& request, const std::string& output,
                         const Change& change) {
  const auto& name = request.captures[0];
  if (!exists(machine, name)) return missing(machine, "pwpolicy -u nosuchuser -authentication-allowed", name);
  if (auto filed = filedFor(machine, name, request.commandLine); filed && filed->status != 0) return filed;
  change(machine.state.account_changes[name]);
  return Answer{.output = output};
}

/// What `id NAME` prints up to "groups=" and behind it.
struct Identity {
  std::string head;
  std::vector<std::string> groups;
};

Identity filedIdentity(const Machine& machine, const std::string& name) {
  constexpr std::string_view kGroups = " groups=";
  if (const auto* account = findAdded(machine, name)) {
    const auto user = std::to_string(account->uid) + "(" + name + ")";
    return {"uid=" + user + " gid=20(staff) groups=", split(kStandardGroups, ',')};
  }
  auto line = machine.sample("id " + name).output;
  if (!line.empty() && line.back() == '\n') line.pop_back();
  const auto end = std::min(line.find(kGroups), line.size());
  const auto head = std::min(end + kGroups.size(), line.size());
  return {line.substr(0, head), split(std::string_view(line).substr(head), ',')};
}

void setGroup(std::vector<std::string>& groups, std::string_view group, std::string_view behind,
              bool member) {
  const auto found = std::find(groups.begin(), groups.end(), group);
  if (!member && found != groups.end()) groups.erase(found);
  if (!member || found != groups.end()) return;
  const auto place = std::find(groups.begin(), groups.end(), behind);
  groups.insert(place == groups.end() ? place : place + 1, std::string(group));
}

Identity identityOf(const Machine& machine, const std::string& name) {
  auto identity = filedIdentity(machine, name);
  const auto change = changeOf(machine, name);
  if (change.admin) setGroup(identity.groups, kAdminGroup, kLocalAccountsGroup, *change.admin);
  if (change.enabled) setGroup(identity.groups, kDisabledGroup, "", !*change.enabled);
  return identity;
}

/// Whether id(1) and pwpolicy(8) say of it what is filed.
bool isAsFiled(const Machine& machine, const std::string& name) {
  const auto change = changeOf(machine, name);
  return findAdded(machine, name) == nullptr && !change.admin && !change.enabled;
}

std::string authenticationText(const Machine& machine, const std::string& name) {
  std::string allowed = "Policy allows user <" + name + "> to authenticate\n";
  std::string disabled =
      "User <" + name + "> is not allowed to authenticate: " + std::string(kDisabledReason) + "\n";
  const auto enabled = changeOf(machine, name).enabled;
  if (enabled && !*enabled) return disabled;
  const auto filed = filedFor(machine, name, "pwpolicy -u " + name + " -authentication-allowed");
  if (!filed) return allowed;
  // To enable an account that is locked out for another reason changes nothing.
  const bool wasDisabled = filed->output.find(kDisabledReason) != std::string::npos;
  return enabled && wasDisabled ? allowed : filed->output;
}

}  // namespace

std::vector<std::string> accountNames(const Machine& machine) {
  std::vector<std::string> names;
  for (auto& record : recordsOf(machine)) names.push_back(std::move(record.name));
  return names;
}

AccountChange changeOf(const Machine& machine, const std::string& name) {
  const auto found = machine.state.account_changes.find(name);
  return found == machine.state.account_changes.end() ? AccountChange{} : found->second;
}

bool isAdministrator(const Machine& machine, const std::string& name) {
  const auto members = administrators(machine);
  return std::find(members.begin(), members.end(), name) != members.end();
}

bool isEnabled(const Machine& machine, const std::string& name) {
  return exists(machine, name) &&
         authenticationText(machine, name).find(kDisabledReason) == std::string::npos;
}

MaybeAnswer addStandardAccount(Machine& machine, const Request& request) {
  return addAccount(machine, request, false);
}

MaybeAnswer addAdministrator(Machine& machine, const Request& request) {
  return addAccount(machine, request, true);
}

MaybeAnswer tellSecureToken(Machine& machine, const Request& request) {
  const auto& name = request.captures[0];
  if (findAdded(machine, name) != nullptr) {
    return Answer{.error =
                      "2024-11-05 09:14:02.118 sysadminctl[2214:19873] Secure token is DISABLED for user " +
                      name + "\n"};
  }
  if (!exists(machine, name)) return Answer{.status = 1};
  return std::nullopt;
}

MaybeAnswer listAccounts(Machine& machine, const Request& /*request*/) {
  Answer answer;
  for (const auto& record : recordsOf(machine)) {
    if (!answer.output.empty()) answer.output += "-\n";
    answer.output += record.text;
  }
  return answer;
}

MaybeAnswer listAdministrators(Machine& machine, const Request& /*request*/) {
  const auto members = administrators(machine);
  if (members.empty()) return Answer{.error = "No such key: GroupMembership\n"};
  return Answer{.output = attribute("GroupMembership", members)};
}

MaybeAnswer deleteAccount(Machine& machine, const Request& request) {
  const auto& name = request.captures[0];
  if (!exists(machine, name)) return missing(machine, "dscl . -delete /Users/nosuchuser", name);
  if (auto filed = filedFor(machine, name, request.commandLine); isRefusal(filed)) return filed;
  auto& state = machine.state;
  const auto added =
      std::erase_if(state.added_accounts, [&](const AddedAccount& account) { return account.name == name; });
  if (added == 0) state.removed_accounts.insert(name);
  state.account_changes.erase(name);
  return Answer{};
}

MaybeAnswer setPassword(Machine& machine, const Request& request) {
  const auto& name = request.captures[0];
  if (!exists(machine, name)) {
    auto answer = missing(machine, "dscl . -delete /Users/nosuchuser", name);
    answer.output = replaced(answer.output, "delete:", "passwd:");
    return answer;
  }
  if (auto filed = filedFor(machine, name, request.commandLine); isRefusal(filed)) return filed;
  machine.state.account_changes[name].password = request.captures[1];
  return Answer{};
}

MaybeAnswer makeAdministrator(Machine& machine, const Request& request) {
  return changeMembership(machine, request, true);
}

MaybeAnswer makeStandard(Machine& machine, const Request& request) {
  return changeMembership(machine, request, false);
}

MaybeAnswer tellAuthentication(Machine& machine, const Request& request) {
  const auto& name = request.captures[0];
  if (!exists(machine, name)) return missing(machine, "pwpolicy -u nosuchuser -authentication-allowed", name);
  return Answer{.output = authenticationText(machine, name)};
}

MaybeAnswer disableAccount(Machine& machine, const Request& request) {
  return changePolicy(machine, request, "", [](AccountChange& change) { change.enabled = false; });
}

MaybeAnswer enableAccount(Machine& machine, const Request& request) {
  return changePolicy(machine, request, "", [](AccountChange& change) { change.enabled = true; });
}

MaybeAnswer requireNewPassword(Machine& machine, const Request& request) {
  return changePolicy(machine, request, "Setting policy for " + request.captures[0] + "\n",
                      [](AccountChange& change) { change.new_password_required = true; });
}

MaybeAnswer clearPolicies(Machine& machine, const Request& request) {
  return changePolicy(machine, request, "", [](AccountChange& change) {
    change.new_password_required = false;
    change.policies_cleared = true;
  });
}

MaybeAnswer describeAccount(Machine& machine, const Request& request) {
  const auto& name = request.captures[0];
  if (name.starts_with('-')) return std::nullopt;  // an option: of the tool's own user
  if (!exists(machine, name)) return missing(machine, "id nosuchuser", name);
  if (isAsFiled(machine, name)) return std::nullopt;
  auto [line, groups] = identityOf(machine, name);
  const char* separator = "";
  for (const auto& group : groups) {
    line += separator + group;
    separator = ",";
  }
  return Answer{.output = line + "\n"};
}

MaybeAnswer listGroupIDs(Machine& machine, const Request& request) {
  const auto& name = request.captures[0];
  if (!exists(machine, name)) return missing(machine, "id -G nosuchuser", name);
  if (isAsFiled(machine, name)) return std::nullopt;
  std::string line;
  for (const auto& group : identityOf(machine, name).groups) {
    if (!line.empty()) line += " ";
    line += group.substr(0, group.find('('));
  }
  return Answer{.output = line + "\n"};
}

}  // namespace msp::lab
