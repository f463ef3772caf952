#pragma once

#include <string>

namespace msp::lab {

/// What a tool prints for one command line, byte for byte.
struct Answer {
  std::string output{};
  std::string error{};
  int status = 0;

  bool operator==(const Answer&) const = default;
};

}  // namespace msp::lab
