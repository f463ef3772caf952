#pragma once

#include <cstdint>
#include <vector>

#include "mac/machine.h"
#include "mac/request.h"

namespace msp::lab {

/// The launch services of the system domain, as launchctl knows them.

/// The loaded ones, in the order of `launchctl list`.
[[nodiscard]] std::vector<ServiceRow> servicesOf(const Machine& machine);
[[nodiscard]] bool isServiceProcess(const Machine& machine, std::int64_t pid);
/// A service's process was killed: the service stays loaded, with the signal as its status. False when no
/// service has that process.
bool endServiceProcess(Machine& machine, std::int64_t pid);

MaybeAnswer listServices(Machine& machine, const Request& request);
/// A service that is loaded from the start, with a filed success for the command line, is loaded once more;
/// otherwise a loaded one is refused, and so is a property list that the lab does not have.
MaybeAnswer bootstrapService(Machine& machine, const Request& request);
MaybeAnswer bootOutService(Machine& machine, const Request& request);
MaybeAnswer kickstartService(Machine& machine, const Request& request);

}  // namespace msp::lab
