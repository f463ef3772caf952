#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace msp::lab {

struct AddedAccount {
  std::string name;
  std::int64_t uid = 0;

  bool operator==(const AddedAccount&) const = default;
};

/// What was done to an account, of the machine or added. What is absent is as the machine's files say.
struct AccountChange {
  std::optional<std::string> password;
  std::optional<bool> admin;
  std::optional<bool> enabled;
  bool new_password_required = false;
  bool policies_cleared = false;

  bool operator==(const AccountChange&) const = default;
};

/// A line of `ps -ax -c -r -o pid,%cpu,rss,comm`.
struct ProcessRow {
  std::int64_t pid = 0;
  std::string rest;  // of its line, from the blank behind the pid on

  bool operator==(const ProcessRow&) const = default;
};

/// A line of `launchctl list`.
struct ServiceRow {
  std::string pid;  // "-" when it does not run
  std::string status;
  std::string label;
  bool changed = false;  // since the lab was built

  bool operator==(const ServiceRow&) const = default;
};

/// What the tools have changed since the lab was built. Processes and services are listed whole from their
/// first change on; before that the machine's files hold them.
struct State {
  std::vector<AddedAccount> added_accounts;
  std::set<std::string> removed_accounts;  // of the machine's own
  std::map<std::string, AccountChange> account_changes;
  std::optional<std::vector<ProcessRow>> processes;
  std::optional<std::vector<ServiceRow>> services;
  std::int64_t last_pid = 90000;  // above what the machines list; 99999 stays free, as the missing one
  std::vector<std::string> restarts;

  bool operator==(const State&) const = default;
};

/// The state as JSON text. Malformed UTF-8 in it is replaced.
[[nodiscard]] std::string printState(const State& state);
/// Throws nlohmann::json::exception when the text is no state.
[[nodiscard]] State parseState(std::string_view text);

}  // namespace msp::lab
