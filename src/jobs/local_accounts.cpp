#include "jobs/local_accounts.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace msp {

void to_json(Json& json, const GroupID& group) {
  Json::object_t object;
  object.emplace_back("sid", group.sid);
  json = std::move(object);
}

void to_json(Json& json, const UserData& user) {
  Json::object_t object;
  object.emplace_back("name", user.name);
  object.emplace_back("sid", user.sid);
  object.emplace_back("full_name", user.full_name);
  object.emplace_back("enabled", user.enabled);
  object.emplace_back("group_members", user.group_members);
  json = std::move(object);
}

void to_json(Json& json, const GroupData& group) {
  Json::object_t object;
  object.emplace_back("name", group.name);
  object.emplace_back("sid", group.sid);
  json = std::move(object);
}

}  // namespace msp
