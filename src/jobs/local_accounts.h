#pragma once

#include <string>
#include <vector>

#include "api/json_utilities.h"

namespace msp {

/// A group by its number alone. The field names are the JSON keys, here and below.
struct GroupID {
  std::string sid;

  bool operator==(const GroupID&) const = default;
};

/// One local account.
struct UserData {
  std::string name;
  std::string sid;  // the user's number, as text
  std::string full_name;
  bool enabled = false;
  std::vector<GroupID> group_members;

  bool operator==(const UserData&) const = default;
};

/// One local group.
struct GroupData {
  std::string name;
  std::string sid;  // the group's number, as text

  bool operator==(const GroupData&) const = default;
};

void to_json(Json& json, const GroupID& group);
void to_json(Json& json, const UserData& user);
void to_json(Json& json, const GroupData& group);

}  // namespace msp
