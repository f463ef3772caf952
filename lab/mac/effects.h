#pragma once

#include <string>
#include <vector>

#include "mac/answer.h"
#include "mac/machine.h"

namespace msp::lab {

/// Carries a command line out on the simulated Mac, changing the machine's state, and tells what the tool
/// prints. The words are the tool's name and its arguments. What the tools know of is the table in
/// effects.cpp; every other command line is answered by the machine's file, or by nothing and status 1.
[[nodiscard]] Answer carryOut(Machine& machine, const std::vector<std::string>& words);

}  // namespace msp::lab
