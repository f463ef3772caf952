#include "mac/state.h"

#include <nlohmann/json.hpp>

namespace msp::lab {

namespace {

using Json = nlohmann::ordered_json;

template <typename Value>
void put(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = *value;
}

template <typename Value>
std::optional<Value> taken(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) return std::nullopt;
  return found->template get<Value>();
}

}  // namespace

// Found by the JSON library, which wants them beside their types.

static void to_json(Json& json, const AddedAccount& account) {
  json = {{"name", account.name}, {"uid", account.uid}};
}

static void from_json(const Json& json, AddedAccount& account) {
  json.at("name").get_to(account.name);
  json.at("uid").get_to(account.uid);
}

static void to_json(Json& json, const AccountChange& change) {
  json = Json::object();
  put(json, "password", change.password);
  put(json, "admin", change.admin);
  put(json, "enabled", change.enabled);
  json["new_password_required"] = change.new_password_required;
  json["policies_cleared"] = change.policies_cleared;
}

static void from_json(const Json& json, AccountChange& change) {
  change.password = taken<std::string>(json, "password");
  change.admin = taken<bool>(json, "admin");
  change.enabled = taken<bool>(json, "enabled");
  json.at("new_password_required").get_to(change.new_password_required);
  json.at("policies_cleared").get_to(change.policies_cleared);
}

static void to_json(Json& json, const ProcessRow& row) { json = {{"pid", row.pid}, {"rest", row.rest}}; }

static void from_json(const Json& json, ProcessRow& row) {
  json.at("pid").get_to(row.pid);
  json.at("rest").get_to(row.rest);
}

static void to_json(Json& json, const ServiceRow& row) {
  json = {{"pid", row.pid}, {"status", row.status}, {"label", row.label}, {"changed", row.changed}};
}

static void from_json(const Json& json, ServiceRow& row) {
  json.at("pid").get_to(row.pid);
  json.at("status").get_to(row.status);
  json.at("label").get_to(row.label);
  json.at("changed").get_to(row.changed);
}

std::string printState(const State& state) {
  Json json = {{"added_accounts", state.added_accounts},
               {"removed_accounts", state.removed_accounts},
               {"account_changes", state.account_changes},
               {"last_pid", state.last_pid},
               {"restarts", state.restarts}};
  put(json, "processes", state.processes);
  put(json, "services", state.services);
  return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

State parseState(std::string_view text) {
  const auto json = Json::parse(text);
  State state;
  json.at("added_accounts").get_to(state.added_accounts);
  json.at("removed_accounts").get_to(state.removed_accounts);
  json.at("account_changes").get_to(state.account_changes);
  json.at("last_pid").get_to(state.last_pid);
  json.at("restarts").get_to(state.restarts);
  state.processes = taken<std::vector<ProcessRow>>(json, "processes");
  state.services = taken<std::vector<ServiceRow>>(json, "services");
  return state;
}

}  // namespace msp::lab
