#include "mac/effects.h"

#include <cstddef>
#include <optional>
#include <string_view>

#include "mac/accounts.h"
#include "mac/home_folders.h"
#include "mac/processes.h"
#include "mac/request.h"
#include "mac/services.h"

namespace msp::lab {

namespace {

MaybeAnswer removeHome(Machine& machine, const Request& request) {
  return removeHomeFolder(machine.lab(), request.captures[0]);
}

MaybeAnswer refuseRemoval(Machine& /*machine*/, const Request& /*request*/) {
  return Answer{.error = "rm: refused: the simulated Mac removes home folders only (rm -rf /Users/NAME/)\n",
                .status = 1};
}

/// A "*" stands for any text within one word, "..." for all further words.
struct Command {
  std::string_view pattern;
  MaybeAnswer (*answer)(Machine&, const Request&);
};

// The first match wins.
constexpr Command kCommands[] = {
    {"sysadminctl -addUser * -password * -passwordHint *", addStandardAccount},
    {"sysadminctl -addUser * -password * -passwordHint * -admin", addAdministrator},
    {"sysadminctl -secureTokenStatus *", tellSecureToken},
    {"dscl . -readall Users UniqueID RecordName RealName PrimaryGroupID", listAccounts},
    {"dscl . -read /Groups/admin GroupMembership", listAdministrators},
    {"dscl . -delete /Users/*", deleteAccount},
    {"dscl . -passwd /Users/* *", setPassword},
    {"dseditgroup -o edit -a * -t user admin", makeAdministrator},
    {"dseditgroup -o edit -d * -t user admin", makeStandard},
    {"pwpolicy -u * -authentication-allowed", tellAuthentication},
    {"pwpolicy -u * -disableuser", disableAccount},
    {"pwpolicy -u * -enableuser", enableAccount},
    {"pwpolicy -u * -setpolicy newPasswordRequired=1", requireNewPassword},
    {"pwpolicy -u * -clearaccountpolicies", clearPolicies},
    {"id -G *", listGroupIDs},
    {"id *", describeAccount},
    {"launchctl list", listServices},
    {"launchctl bootstrap system *", bootstrapService},
    {"launchctl bootout system/*", bootOutService},
    {"launchctl kickstart -k system/*", kickstartService},
    {"ps -ax -c -r -o pid,%cpu,rss,comm", listProcesses},
    {"kill *", killProcess},
    {"shutdown -r *", planRestart},
    {"rm -rf /Users/*/", removeHome},
    {"rm ...", refuseRemoval},
};

/// Takes the first word off the pattern.
std::string_view takeWord(std::string_view& pattern) {
  const auto word = pattern.substr(0, pattern.find(' '));
  pattern.remove_prefix(word.size() == pattern.size() ? word.size() : word.size() + 1);
  return word;
}

/// Whether the word has the form; what stands for its "*" is added to the captures.
bool matchWord(std::string_view form, std::string_view word, std::vector<std::string>& captures) {
  const auto star = form.find('*');
  if (star == std::string_view::npos) return word == form;
  const auto head = form.substr(0, star), tail = form.substr(star + 1);
  if (word.size() < head.size() + tail.size() || !word.starts_with(head) || !word.ends_with(tail))
    return false;
  captures.emplace_back(word.substr(head.size(), word.size() - head.size() - tail.size()));
  return true;
}

std::optional<std::vector<std::string>> match(std::string_view pattern,
                                              const std::vector<std::string>& words) {
  std::vector<std::string> captures;
  for (const auto& word : words) {
    if (pattern == "...") return captures;
    if (pattern.empty() || !matchWord(takeWord(pattern), word, captures)) return std::nullopt;
  }
  if (!pattern.empty() && pattern != "...") return std::nullopt;
  return captures;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text = words.front();
  for (std::size_t i = 1; i < words.size(); ++i) text += " " + words[i];
  return text;
}

}  // namespace

Answer carryOut(Machine& machine, const std::vector<std::string>& words) {
  constexpr int kNoAnswer = 1;
  const auto commandLine = joined(words);
  for (const auto& [pattern, answer] : kCommands) {
    auto captures = match(pattern, words);
    if (!captures) continue;
    if (auto found = answer(machine, {commandLine, *std::move(captures)})) return *std::move(found);
    break;
  }
  return machine.filed(commandLine).value_or(Answer{.status = kNoAnswer});
}

}  // namespace msp::lab
