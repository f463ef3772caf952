#pragma once

#include <string>
#include <vector>

#include "mac/machine.h"
#include "mac/request.h"

namespace msp::lab {

/// What sysadminctl, dscl, dseditgroup, pwpolicy and id know of the accounts: the machine's own, less the
/// removed ones, and the added ones.

/// In the order of the directory's listing; of an account with several names the first.
[[nodiscard]] std::vector<std::string> accountNames(const Machine& machine);
/// Whether the admin group lists it.
[[nodiscard]] bool isAdministrator(const Machine& machine, const std::string& name);
/// False for an account that has been disabled; a locked-out one counts as enabled.
[[nodiscard]] bool isEnabled(const Machine& machine, const std::string& name);

/// What was done to it; nothing for an account that is as it was.
[[nodiscard]] AccountChange changeOf(const Machine& machine, const std::string& name);

// One function for each command line; what the "*" of its pattern stand for is in the request.
MaybeAnswer addStandardAccount(Machine& machine, const Request& request);
MaybeAnswer addAdministrator(Machine& machine, const Request& request);
MaybeAnswer tellSecureToken(Machine& machine, const Request& request);
MaybeAnswer listAccounts(Machine& machine, const Request& request);
MaybeAnswer listAdministrators(Machine& machine, const Request& request);
MaybeAnswer deleteAccount(Machine& machine, const Request& request);
MaybeAnswer setPassword(Machine& machine, const Request& request);
MaybeAnswer makeAdministrator(Machine& machine, const Request& request);
MaybeAnswer makeStandard(Machine& machine, const Request& request);
MaybeAnswer tellAuthentication(Machine& machine, const Request& request);
MaybeAnswer disableAccount(Machine& machine, const Request& request);
MaybeAnswer enableAccount(Machine& machine, const Request& request);
MaybeAnswer requireNewPassword(Machine& machine, const Request& request);
MaybeAnswer clearPolicies(Machine& machine, const Request& request);
MaybeAnswer describeAccount(Machine& machine, const Request& request);
MaybeAnswer listGroupIDs(Machine& machine, const Request& request);

}  // namespace msp::lab
