#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/task_runner.h"

namespace msp::test {

/// A runner that starts nothing: it answers from a table and records every command line, arguments joined
/// by one blank; one that is empty or holds a blank is in single quotes. A command line without an answer
/// prints nothing.
class FakeTaskRunner : public TaskRunner {
 public:
  void answer(const std::string& commandLine, std::string output) {
    answers_[commandLine] = std::move(output);
  }

  std::string runCommand(const std::string& command, const std::vector<std::string>& arguments) override {
    return run(command, arguments, "");
  }
  std::string runCommandStreaming(const std::string& command,
                                  const std::vector<std::string>& arguments) override {
    return run(command, arguments, "streaming ");
  }

  /// Every command line in order; a streaming run's begins with "streaming ".
  [[nodiscard]] const std::vector<std::string>& commandLines() const { return commandLines_; }
  [[nodiscard]] bool ran(const std::string& commandLine) const {
    return std::count(commandLines_.begin(), commandLines_.end(), commandLine) > 0;
  }
  void forgetCommandLines() { commandLines_.clear(); }
  /// Called with each command line before it is answered.
  void onRun(std::function<void(const std::string&)> observer) { observer_ = std::move(observer); }

 private:
  std::string run(const std::string& command, const std::vector<std::string>& arguments,
                  const std::string& prefix) {
    std::string line = command;
    for (const std::string& argument : arguments) {
      const bool isQuoted = argument.empty() || argument.find(' ') != std::string::npos;
      line += isQuoted ? " '" + argument + "'" : " " + argument;
    }
    commandLines_.push_back(prefix + line);
    if (observer_) observer_(line);
    const auto found = answers_.find(line);
    return found == answers_.end() ? "" : found->second;
  }

  std::map<std::string, std::string> answers_;
  std::vector<std::string> commandLines_;
  std::function<void(const std::string&)> observer_;
};

}  // namespace msp::test
