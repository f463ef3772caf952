#include "mac/simulated_mac.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace msp::lab {

namespace fs = std::filesystem;

namespace {

// Every tool that the agent runs by name, and `which`, by which its login shell finds them.
constexpr std::array kTools = {
    "airport",  "df",      "diskutil",  "dscl",    "dseditgroup",  "id",     "ifconfig",
    "ipconfig", "kill",    "launchctl", "netstat", "powermetrics", "ps",     "pwpolicy",
    "rm",       "scutil",  "shutdown",  "sw_vers", "sysadminctl",  "sysctl", "system_profiler",
    "uptime",   "vm_stat", "which",     "who",
};

constexpr std::string_view kWirelessTool =
    "System/Library/PrivateFrameworks/Apple80211.framework/Versions/Current/Resources/airport";

/// A file descriptor that no tool inherits: one that did would keep a held tool from seeing the end.
class Descriptor {
 public:
  Descriptor(const fs::path& file, int flags) {
    do {
      number_ = open(file.c_str(), flags | O_CLOEXEC, 0644);
    } while (number_ < 0 && errno == EINTR);
    if (number_ < 0) fail(file);
  }
  ~Descriptor() { close(number_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  void writeAll(std::string_view content, const fs::path& file) const {
    while (!content.empty()) {
      const auto written = write(number_, content.data(), content.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail(file);
      content.remove_prefix(static_cast<std::size_t>(written));
    }
  }

 private:
  [[noreturn]] static void fail(const fs::path& file) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + file.string());
  }

  int number_ = -1;
};

void writeFile(const fs::path& file, std::string_view content) {
  Descriptor(file, O_WRONLY | O_CREAT | O_TRUNC).writeAll(content, file);
}

/// Removes an answer; the tools that wait for it find the end of the file.
void discard(const fs::path& file) {
  if (!fs::is_fifo(file)) {
    fs::remove(file);
    return;
  }
  const Descriptor writer(file, O_RDWR | O_NONBLOCK);  // a reader too, so opening does not wait for one
  fs::remove(file);
}

/// In single quotes, as a shell reads it back.
std::string shellQuoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result + "'";
}

fs::path withSuffix(fs::path file, std::string_view suffix) { return file += suffix; }

}  // namespace

SimulatedMac::SimulatedMac(const fs::path& folder, std::string_view machine)
    : machine_(fs::canonical(fs::path(MSP_MACHINES) / machine)) {
  if (!fs::create_directories(folder)) throw std::runtime_error(folder.string() + " is there already");
  folder_ = fs::canonical(folder);
  for (const auto* part : {"agent", "answers", "bin", "home", "Users"}) fs::create_directory(folder_ / part);
  fs::create_directory_symlink(machine_, folder_ / "machine");
  buildHome();
  buildTools();
  buildFolders();
}

SimulatedMac::~SimulatedMac() {
  for (const auto& file : held_) {
    try {
      discard(file);
    } catch (const std::system_error&) {
      // The folder was removed before, and no tool can be waiting for what it held.
      continue;
    }
  }
}

void SimulatedMac::buildHome() const {
  writeFile(home() / ".bash_profile", "export PATH=" + shellQuoted((folder_ / "bin").string()) + "\n");
}

void SimulatedMac::buildTools() const {
  for (const auto* name : kTools) fs::create_symlink(MSP_MAC_TOOL, tool(name));
}

void SimulatedMac::buildFolders() const {
  const auto platform = nlohmann::json::parse(std::ifstream(machine_ / "platform.json"));
  for (const auto& entry : platform.at("users_folder")) {
    const auto path = users() / entry.at("name").get<std::string>();
    if (entry.at("is_dir").get<bool>()) {
      fs::create_directory(path);
    } else {
      writeFile(path, "");
    }
  }
  for (const auto* root : {"Library", "System/Library"}) {
    fs::create_directories(folder_ / root / "LaunchAgents");
    fs::create_directories(folder_ / root / "LaunchDaemons");
  }
  for (const auto& plist : platform.at("plists")) {
    writeFile(folder_ / fs::path(plist.get<std::string>()).relative_path(), "");
  }
  fs::create_directories(folder_ / "Library/Receipts");
  fs::copy_file(machine_ / "InstallHistory.plist", folder_ / "Library/Receipts/InstallHistory.plist");
  fs::create_directories((folder_ / kWirelessTool).parent_path());
  fs::create_symlink(tool("airport"), folder_ / kWirelessTool);
}

fs::path SimulatedMac::installAgent(const fs::path& executable, std::string_view defaultAPI) const {
  auto installed = agentDirectory() / "msp-agent";
  std::error_code otherFileSystem;
  fs::create_hard_link(executable, installed, otherFileSystem);
  if (otherFileSystem) fs::copy_file(executable, installed);
  writeFile(agentDirectory() / "default_api.txt", defaultAPI);
  return installed;
}

fs::path SimulatedMac::answerFile(std::string_view commandLine) const {
  std::string name(commandLine);
  std::replace(name.begin(), name.end(), '/', '_');
  return folder_ / "answers" / name;
}

void SimulatedMac::answer(std::string_view commandLine, const Answer& answer) {
  const auto file = answerFile(commandLine);
  // Tools look for the output first, so that file appears last, and complete.
  writeFile(withSuffix(file, ".stderr"), answer.error);
  writeFile(withSuffix(file, ".status"), std::to_string(answer.status) + "\n");
  const auto draft = folder_ / "answers" / ".draft";
  writeFile(draft, answer.output);
  if (held_.erase(file) > 0) discard(file);
  fs::rename(draft, file);
}

void SimulatedMac::forgetAnswer(std::string_view commandLine) {
  const auto file = answerFile(commandLine);
  held_.erase(file);
  discard(file);
  fs::remove(withSuffix(file, ".stderr"));
  fs::remove(withSuffix(file, ".status"));
}

void SimulatedMac::hold(std::string_view commandLine) {
  forgetAnswer(commandLine);
  const auto file = answerFile(commandLine);
  if (mkfifo(file.c_str(), 0600) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot make " + file.string());
  }
  held_.insert(file);
}

void SimulatedMac::release(std::string_view commandLine, std::string_view output) {
  const auto file = answerFile(commandLine);
  if (!held_.contains(file)) throw std::runtime_error("nothing is held for " + std::string(commandLine));
  const Descriptor pipe(file, O_WRONLY);  // waits for the tool
  held_.erase(file);
  fs::remove(file);  // the pipe itself stays until both sides are done
  pipe.writeAll(output, file);
}

fs::path SimulatedMac::sandboxExecutable() { return MSP_MAC_SANDBOX; }

}  // namespace msp::lab
