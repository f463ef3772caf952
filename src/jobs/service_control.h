#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "jobs/service.h"
#include "platform/host.h"
#include "platform/task_runner.h"

/// The Mac's launchd jobs, through launchctl(1). A runner is not for two threads at once.
namespace msp {

/// From `launchctl list`, in the order of the output, the heading left out. A line that has not exactly three
/// columns is left out: so is a job whose label has a blank.
std::vector<Service> parseServices(std::string_view output);

/// What launchctl(1) lists; empty when it prints nothing.
std::vector<Service> listServices(TaskRunner& runner);

/// The property list of a service, by the name of its file ("org.example.backup", with or without ".plist"):
/// the first that exists in the system's folders of launchd jobs.
std::optional<std::string> findServiceFile(const std::string& name, const Host& host);

// What follows changes a job of the system domain. The answer is what the tool printed on standard output,
// "OK" for nothing. A failure that is told on standard error only is "OK" too, on purpose.

/// "Service file not found" when there is none.
std::string startService(const std::string& name, const Host& host, TaskRunner& runner);
std::string stopService(const std::string& name, TaskRunner& runner);
std::string restartService(const std::string& name, TaskRunner& runner);

}  // namespace msp
