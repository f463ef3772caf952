#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "mac/answer.h"
#include "mac/descriptor.h"
#include "mac/state.h"

namespace msp::lab {

/// The simulated Mac of a lab folder at one moment: what its machine's files say, and what has changed since.
/// As long as the object lives nobody else has one for that lab: it holds a lock on `<lab>/state.lock`.
///
/// What cannot be read or written throws std::system_error or, for a state that is no JSON text of ours,
/// nlohmann::json::exception.
class Machine {
 public:
  /// Waits until the lab is free.
  explicit Machine(std::filesystem::path lab);

  [[nodiscard]] const std::filesystem::path& lab() const { return lab_; }
  /// What the machine's folder holds for a command line, as it would be typed.
  [[nodiscard]] std::optional<Answer> filed(std::string_view commandLine) const;
  /// The same where the machine's folder cannot do without: an empty answer stands for a missing file.
  [[nodiscard]] Answer sample(std::string_view commandLine) const {
    return filed(commandLine).value_or(Answer{});
  }
  /// Writes `<lab>/state.json` unless nothing has changed. A reader finds the old file or the new one, whole.
  void save() const;

  State state;

 private:
  std::filesystem::path lab_;
  Descriptor lock_;
  State before_;
};

}  // namespace msp::lab
