#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mac/answer.h"

namespace msp::lab {

/// A command line as a tool got it.
struct Request {
  std::string commandLine;            // the tool and its arguments, joined by one blank
  std::vector<std::string> captures;  // what stands where its pattern has a "*"
};

/// What a tool prints; nothing when the machine's file for the command line decides.
using MaybeAnswer = std::optional<Answer>;

}  // namespace msp::lab
