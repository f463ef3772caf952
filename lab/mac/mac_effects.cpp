// Carries out what the tools of the simulated Mac do to it. mac-tool becomes this program for a command line
// that changes the machine, or that asks for what may have changed: it is launched as <lab>/effects, with the
// tool's name and arguments. Apart from mac-tool, so that the quick start of that one stays as it is.

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "mac/effects.h"
#include "mac/launch_path.h"
#include "mac/machine.h"

namespace {

constexpr int kBrokenLab = 2;

void print(int stream, std::string_view text) {
  while (!text.empty()) {
    const auto written = write(stream, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

/// The lab is left for the next tool before anything is printed: whoever reads may be slow.
msp::lab::Answer answerFor(const std::vector<std::string>& words) {
  msp::lab::Machine machine(std::filesystem::path(launchPath()).parent_path());
  auto answer = msp::lab::carryOut(machine, words);
  machine.save();
  return answer;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 1) return kBrokenLab;
  try {
    const auto answer = answerFor({argv, argv + argc});
    print(STDOUT_FILENO, answer.output);
    print(STDERR_FILENO, answer.error);
    return answer.status;
  } catch (const std::exception& problem) {
    print(STDERR_FILENO, std::string("mac-effects: ") + problem.what() + "\n");
    return kBrokenLab;
  }
}
