#pragma once

#include <string>

#include "api/json_utilities.h"

/// The bodies of the three requests that the server understands.
namespace msp {

/// Asks for an agent record under the computer's name.
Json createRequest(const std::string& name);

/// Tries out a new identity's address.
Json testRequest();

/// Reports; `report` is the inventory report's JSON text, carried as one JSON string.
Json checkInRequest(const std::string& uuid, const std::string& report);

}  // namespace msp
