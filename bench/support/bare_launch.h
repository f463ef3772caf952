#pragma once

#include <string>
#include <vector>

namespace msp::bench {

/// A tool as it is launched: its path, and its arguments without the program's name.
struct Launch {
  std::string path;
  std::vector<std::string> arguments;
};

/// The least that yields a tool's output, to measure everything else against: one pipe, posix_spawn(3), read
/// to the end, waitpid(2). Ends the benchmark when the system refuses.
std::string launchBare(const Launch& launch);

/// All of them, one after another.
void launchBare(const std::vector<Launch>& launches);

}  // namespace msp::bench
