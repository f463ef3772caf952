#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/text.h"

namespace msp::test {

/// The machines whose tools' output is kept as files.
inline constexpr const char* kMachines[] = {"intel-ventura", "m2-sonoma", "m4-sequoia"};

/// A file of one machine, byte for byte; a missing one prints nothing, like the tool on a real machine.
inline std::string machineFile(const std::string& machine, const std::string& name) {
  std::ifstream file(std::string(MSP_MACHINES) + "/" + machine + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// What a command line prints on one machine, untrimmed.
inline std::string machineOutput(const std::string& machine, std::string commandLine) {
  std::replace(commandLine.begin(), commandLine.end(), '/', '_');
  return machineFile(machine, commandLine);
}

/// The same, trimmed as the command runner trims it.
inline std::string trimmedMachineOutput(const std::string& machine, const std::string& commandLine) {
  return std::string(trimWhiteSpaceAndNewlines(machineOutput(machine, commandLine)));
}

}  // namespace msp::test
