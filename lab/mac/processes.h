#pragma once

#include <cstdint>
#include <vector>

#include "mac/machine.h"
#include "mac/request.h"

namespace msp::lab {

/// The processes that ps, kill and launchctl know, and shutdown.

[[nodiscard]] std::vector<ProcessRow> processesOf(const Machine& machine);
/// Whether ps or launchctl lists it.
[[nodiscard]] bool isProcess(const Machine& machine, std::int64_t pid);
/// Takes it out of ps's list; false when it is not there.
bool endProcess(Machine& machine, std::int64_t pid);
/// A process that ends and starts again: ps lists it with another number, if at all.
void renumberProcess(Machine& machine, std::int64_t from, std::int64_t to);

MaybeAnswer listProcesses(Machine& machine, const Request& request);
MaybeAnswer killProcess(Machine& machine, const Request& request);
MaybeAnswer planRestart(Machine& machine, const Request& request);

}  // namespace msp::lab
