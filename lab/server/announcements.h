#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "server/protocol.h"

/// What the lab server prints, one line per event. Pure functions; what an agent sent is shown without
/// control characters, and what is missing or of another type as "?".
namespace msp::lab {

/// One printable line of at most about `limit` bytes: control characters become blanks, the rest is cut.
std::string printable(std::string_view text, std::size_t limit = 120);

/// "7.5 GB", counted in powers of 1000 as for disks; `binary` counts in powers of 1024 as for memory.
std::string sizeText(std::int64_t bytes, bool binary);

/// "registration: Annas-Mac -> 6f1c2d3a-..."
std::string registrationLine(const std::string& name, const std::string& uuid);

/// The machine in one line: computer name, system, model, serial, addresses, memory, disk, load.
std::string checkInLine(std::size_t number, const Json& report);

/// "job 1 queued: get_processes"
std::string jobQueuedLine(const Json& job);

/// "job 1 (get_processes): success, 412 processes"; a failure shows its message.
std::string resultLine(const std::string& jobType, const Json& result);

}  // namespace msp::lab
