#include "jobs/service_control.h"

#include <cstddef>

#include "platform/text.h"

namespace msp {
namespace {

constexpr const char* kServiceFolders[] = {
    "/System/Library/LaunchDaemons/",
    "/System/Library/LaunchAgents/",
    "/Library/LaunchDaemons/",
    "/Library/LaunchAgents/",
};

std::string outcome(const std::string& output) { return output.empty() ? "OK" : output; }

}  // namespace

std::vector<Service> parseServices(std::string_view output) {
  const auto allLines = lines(output);
  std::vector<Service> services;
  for (std::size_t i = 1; i < allLines.size(); ++i) {  // the first is the heading, whatever it says
    const auto columns = splitAtBlanks(allLines[i]);
    if (columns.size() != 3) continue;
    // The last exit status decides, not the process id, on purpose: a job that runs after a failure counts as
    // stopped, a loaded one that ended well as running.
    const std::string label(columns[2]);
    services.push_back({label, columns[1] == "0" ? "Running" : "Stopped", label});
  }
  return services;
}

std::vector<Service> listServices(TaskRunner& runner) {
  return parseServices(runner.runCommand("launchctl", {"list"}));
}

std::optional<std::string> findServiceFile(const std::string& name, const Host& host) {
  const std::string file = name.ends_with(".plist") ? name : name + ".plist";
  for (const char* const folder : kServiceFolders) {
    std::string path = folder + file;
    if (host.fileExists(path)) return path;
  }
  return std::nullopt;
}

std::string startService(const std::string& name, const Host& host, TaskRunner& runner) {
  const auto file = findServiceFile(name, host);
  if (!file) return "Service file not found";
  return outcome(runner.runCommand("launchctl", {"bootstrap", "system", *file}));
}

std::string stopService(const std::string& name, TaskRunner& runner) {
  return outcome(runner.runCommand("launchctl", {"bootout", "system/" + name}));
}

std::string restartService(const std::string& name, TaskRunner& runner) {
  return outcome(runner.runCommand("launchctl", {"kickstart", "-k", "system/" + name}));
}

}  // namespace msp
