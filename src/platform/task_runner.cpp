#include "platform/task_runner.h"

#include <sys/stat.h>

#include <system_error>

#include "platform/child_process.h"
#include "platform/event_log.h"
#include "platform/file_system.h"
#include "platform/text.h"

namespace msp {

// "which" is known from the start, and by its name alone: it is found only in the working directory.
TaskRunner::TaskRunner() : commandPaths_{{"which", "which"}} {}

std::string TaskRunner::runCommand(const std::string& command, const std::vector<std::string>& arguments) {
  const std::string path = launchPath(command);
  if (path.empty()) return "";

  ChildProcess child;
  if (const int problem = child.launch(path, arguments, ChildProcess::Output::separate); problem != 0) {
    logEvent("Error running " + command + ": " + std::generic_category().message(problem));
    return "";
  }
  std::string output;
  std::string error;
  if (child.collectUntilExit(output, error) != 0) {
    logEvent("Error returned from " + command + ": " + decodeText(error).value_or("unknown"));
  }
  child.collectRemainingOutput(output);
  return std::string(trimWhiteSpaceAndNewlines(decodeText(output).value_or("")));
}

std::string TaskRunner::runCommandStreaming(const std::string& command,
                                            const std::vector<std::string>& arguments) {
  const std::string path = launchPath(command);
  if (path.empty()) return "";

  ChildProcess child;
  // A refused launch is silent here, unlike in runCommand.
  if (child.launch(path, arguments, ChildProcess::Output::merged) != 0) return "";
  std::string output;
  std::string none;
  child.collectUntilExit(output, none);
  return decodeText(output).value_or("");
}

std::string TaskRunner::pathForCommand(const std::string& command) {
  if (command == "macupgrade.sh") return "/opt/msp-agent/macupgrade.sh";
  if (const auto known = commandPaths_.find(command); known != commandPaths_.end()) return known->second;
  if (command.starts_with('/')) return command;

  std::string path = runCommand("/bin/bash", {"-l", "-c", "which " + command});
  if (path.find("built-in") != std::string::npos) path = command;
  if (path.ends_with(" not found")) return "";
  // An empty answer and one that is no path are remembered like any other.
  commandPaths_[command] = path;
  return path;
}

std::string TaskRunner::launchPath(const std::string& command) {
  std::string path = pathForCommand(command);
  if (path.empty() || isLaunchablePath(path)) return path;
  logEvent("No path for command " + path);
  return "";
}

bool isLaunchableMode(int mode) {
  const int lastDigits = mode % 100;
  return (mode < -99 || mode > 99) && (lastDigits < -9 || lastDigits > 9);
}

bool isLaunchablePath(const std::string& path) {
  // No file's path holds a NUL character, and the calls below would not see what follows it.
  if (path.find('\0') != std::string::npos || !fileExists(path)) return false;
  struct stat item {};
  return lstat(path.c_str(), &item) != 0 || isLaunchableMode(static_cast<int>(item.st_mode & 07777));
}

}  // namespace msp
