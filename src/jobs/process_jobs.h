#pragma once

#include <string_view>
#include <vector>

#include "jobs/process_data.h"

namespace msp {

/// From `ps -ax -c -r -o pid,%cpu,rss,comm`, ps(1), in the order of the output. A line that does not have
/// exactly four words, or whose numbers do not parse, is left out: so is a process whose name has a blank.
std::vector<ProcessData> parseProcesses(std::string_view output);

}  // namespace msp
