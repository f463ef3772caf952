#pragma once

#include <string>
#include <vector>

#include "server/protocol.h"

namespace msp::lab {

/// A job as it is ordered; the server gives it its id.
struct JobOrder {
  std::string type;
  Json arguments;  // null for none
};

/// One job of every type there is, for the simulated Mac `intel-ventura`, where all of them succeed. The
/// download is of what this server tells at its own address. Restarting the Mac comes last.
std::vector<JobOrder> oneJobOfEachType(const std::string& serverUrl);

}  // namespace msp::lab
