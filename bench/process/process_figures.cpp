#include "process/process_figures.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "platform/console.h"

namespace msp::bench {
namespace {

namespace fs = std::filesystem;

fs::path folderOf(pid_t process) { return fs::path("/proc") / std::to_string(process); }

std::string contentOf(const fs::path& file) {
  const std::ifstream stream(file);
  std::ostringstream content;
  content << stream.rdbuf();
  if (content.str().empty()) fatalError("cannot read " + file.string());
  return content.str();
}

/// The number behind "Name:" at the begin of a line.
long numberIn(const fs::path& file, const std::string& name) {
  std::istringstream lines(contentOf(file));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
  }
  fatalError(file.string() + " says nothing of " + name);
}

std::size_t entriesOf(const fs::path& folder) {
  std::error_code error;
  const fs::directory_iterator entries(folder, error);
  if (error) fatalError("cannot read " + folder.string());
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

Memory memoryOf(pid_t process) {
  const auto file = folderOf(process) / "smaps_rollup";
  return {numberIn(file, "Anonymous"), numberIn(file, "Rss")};
}

std::size_t threadsOf(pid_t process) { return entriesOf(folderOf(process) / "task"); }

std::size_t descriptorsOf(pid_t process) { return entriesOf(folderOf(process) / "fd"); }

double cpuMillisecondsOf(pid_t process) {
  const std::string content = contentOf(folderOf(process) / "stat");
  // The name, which may hold anything, is in parentheses; utime and stime are the 12th and 13th after it.
  std::istringstream fields(content.substr(content.rfind(')') + 1));
  std::string skipped;
  for (int i = 0; i < 11; ++i) fields >> skipped;
  double userTicks = 0, systemTicks = 0;
  fields >> userTicks >> systemTicks;
  constexpr double kMilliseconds = 1000;
  return (userTicks + systemTicks) * kMilliseconds / static_cast<double>(sysconf(_SC_CLK_TCK));
}

long voluntarySwitchesOf(pid_t process) {
  long switches = 0;
  for (const auto& thread : fs::directory_iterator(folderOf(process) / "task")) {
    switches += numberIn(thread.path() / "status", "voluntary_ctxt_switches");
  }
  return switches;
}

}  // namespace msp::bench
