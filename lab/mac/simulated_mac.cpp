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

#include "mac/accounts.h"
#include "mac/descriptor.h"
#include "mac/machine.h"
#include "mac/processes.h"
#include "mac/services.h"

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

/// Removes a file; the tools that wait for it, should it be a FIFO, find the end of the file.
void discard(const fs::path& file) {
  if (!fs::is_fifo(file)) {
    fs::remove(file);
    return;
  }
  const Descriptor writer(file, O_RDWR | O_NONBLOCK);  // a reader too, so opening does not wait for one
  fs::remove(file);
}

void makePipe(const fs::path& file) {
  if (mkfifo(file.c_str(), 0600) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot make " + file.string());
  }
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
  for (const auto* part : {"agent", "answers", "bin", "home", "tools", "Users"})
    fs::create_directory(folder_ / part);
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
  fs::create_symlink(MSP_MAC_EFFECTS, folder_ / "effects");
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
  makePipe(file);
  held_.insert(file);
}

void SimulatedMac::release(std::string_view commandLine, std::string_view output) {
  const auto file = answerFile(commandLine);
  if (!held_.contains(file)) throw std::runtime_error("nothing is held for " + std::string(commandLine));
  const Descriptor pipe(file, O_WRONLY);  // waits for the tool
  held_.erase(file);
  fs::remove(file);  // the pipe itself stays until both sides are done
  pipe.writeAll(output);
}

fs::path SimulatedMac::spoiltTool(std::string_view name) const { return folder_ / "tools" / name; }

/// Writes a file for a tool that is spoilt from now on; nothing else of it stays.
void SimulatedMac::spoilTool(std::string_view name,
                             std::initializer_list<std::pair<std::string_view, std::string>> files) {
  restoreTool(name);
  const auto draft = spoiltTool(".draft");
  fs::create_directory(draft);
  for (const auto& [file, content] : files) writeFile(draft / file, content);
  fs::rename(draft, spoiltTool(name));
}

void SimulatedMac::failTool(std::string_view name, int status, std::string_view error) {
  spoilTool(
      name,
      {{"answer", ""}, {"answer.stderr", std::string(error)}, {"answer.status", std::to_string(status)}});
}

void SimulatedMac::garbageTool(std::string_view name, std::string_view bytes) {
  spoilTool(name, {{"answer", std::string(bytes)}});
}

void SimulatedMac::slowTool(std::string_view name, int milliseconds) {
  spoilTool(name, {{"milliseconds", std::to_string(milliseconds)}});
}

void SimulatedMac::holdTool(std::string_view name) {
  restoreTool(name);
  const auto draft = spoiltTool(".draft");
  fs::create_directory(draft);
  makePipe(draft / "hold");
  fs::rename(draft, spoiltTool(name));
  held_.insert(spoiltTool(name) / "hold");
}

void SimulatedMac::restoreTool(std::string_view name) {
  const auto pipe = spoiltTool(name) / "hold";
  if (held_.erase(pipe) > 0) discard(pipe);
  fs::remove_all(spoiltTool(name));
}

std::vector<std::string> SimulatedMac::accounts() const { return accountNames(Machine(folder_)); }

bool SimulatedMac::isAdmin(const std::string& name) const { return isAdministrator(Machine(folder_), name); }

bool SimulatedMac::isEnabled(const std::string& name) const { return lab::isEnabled(Machine(folder_), name); }

std::optional<std::string> SimulatedMac::password(const std::string& name) const {
  return changeOf(Machine(folder_), name).password;
}

bool SimulatedMac::mustChangePassword(const std::string& name) const {
  return changeOf(Machine(folder_), name).new_password_required;
}

std::vector<std::string> SimulatedMac::homeFolders() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(users())) {
    if (!entry.is_symlink() && entry.is_directory()) names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> SimulatedMac::loadedServices() const {
  std::vector<std::string> labels;
  for (const auto& service : servicesOf(Machine(folder_))) labels.push_back(service.label);
  return labels;
}

bool SimulatedMac::isRunning(std::int64_t pid) const { return isProcess(Machine(folder_), pid); }

std::vector<std::string> SimulatedMac::restarts() const { return Machine(folder_).state.restarts; }

fs::path SimulatedMac::sandboxExecutable() { return MSP_MAC_SANDBOX; }

}  // namespace msp::lab
