#pragma once

#include <string>
#include <string_view>

namespace msp {

/// One line on standard output, written whole and flushed at once: under launchd standard output is a
/// file. A failure is ignored. Safe on any thread, lines of two threads do not mix.
void printLine(std::string_view line);

/// Ends the process: one line on standard error, then abort(3). Only for the few failures that are meant
/// to end the agent.
[[noreturn]] void fatalError(std::string_view message);

}  // namespace msp
