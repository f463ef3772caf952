#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace msp {

/// Runs the operating system's tools and hands back what they printed.
///
/// Every failure (unknown name, refused launch, malformed bytes) is an empty string; the reason is
/// in the event log. A call blocks until the tool exits, without time-out. Of an output beyond 64 MiB the
/// rest is dropped. Not for two threads at once: make your own.
class TaskRunner {
 public:
  TaskRunner();
  virtual ~TaskRunner() = default;
  TaskRunner(const TaskRunner&) = delete;
  TaskRunner& operator=(const TaskRunner&) = delete;

  /// Standard output up to its end, white space and newlines trimmed. Standard error reaches only the
  /// event log, and that only when the exit status is not 0. `command` is a tool's name or an absolute
  /// path; `arguments` come without the program's name.
  virtual std::string runCommand(const std::string& command, const std::vector<std::string>& arguments);

  /// Standard output and error as they came, untrimmed; the exit status is not looked at.
  virtual std::string runCommandStreaming(const std::string& command,
                                          const std::vector<std::string>& arguments);

  /// The path a command is launched by: itself when absolute, else what a login shell's `which` answers,
  /// remembered for the life of this runner. "" when the command is unknown.
  std::string pathForCommand(const std::string& command);

 private:
  /// The launch path when the command is known and may be launched, "" otherwise.
  std::string launchPath(const std::string& command);

  std::map<std::string, std::string> commandPaths_;
};

/// What the agent will launch, by the *decimal* digits of the permission bits, on purpose: 0764 (500) is
/// refused although it can be executed, 0644 (420) passes although it cannot.
bool isLaunchableMode(int mode);

/// Whether something exists at the path and its permissions pass isLaunchableMode; permissions that
/// cannot be read pass too.
bool isLaunchablePath(const std::string& path);

}  // namespace msp
