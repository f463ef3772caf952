#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mac/answer.h"

namespace msp::lab {

/// A Mac in a folder, called the lab folder: the tools that an agent runs, the folders that it looks
/// into, and a directory for the agent itself.
///
///     home/         the user's home; its .bash_profile makes bin/ the whole PATH
///     bin/          one tool per name; each prints what is filed for its command line
///     machine       symbolic link to the folder of tool output (lab/mac/machines/<machine>)
///     answers/      files that go before the machine's, of the same form
///     tools/        a folder for each tool that is spoilt as a whole
///     effects       the program that tools become to change the machine
///     state.json    what they have changed; absent as long as that is nothing
///     Users/ Library/ System/
///     agent/        the agent's directory
///
/// An agent started with HOME=home() finds the tools. Started through `mac-sandbox <folder> --
/// /opt/msp-agent/msp-agent` it also finds the folders at the places where a Mac has them.
///
/// What cannot be built or written throws std::runtime_error (std::filesystem::filesystem_error mostly).
/// One thread at a time; the tools may run meanwhile.
class SimulatedMac {
 public:
  /// Builds the lab folder, which must not exist yet, for one of the machines (`intel-ventura`,
  /// `m2-sonoma`, `m4-sequoia`). It is left behind: removing it is up to whoever chose the place.
  SimulatedMac(const std::filesystem::path& folder, std::string_view machine);
  /// Lets go of every tool that still waits (see hold()).
  ~SimulatedMac();
  SimulatedMac(const SimulatedMac&) = delete;
  SimulatedMac& operator=(const SimulatedMac&) = delete;
  SimulatedMac(SimulatedMac&&) = delete;
  SimulatedMac& operator=(SimulatedMac&&) = delete;

  /// Absolute, free of symbolic links.
  [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
  [[nodiscard]] std::filesystem::path home() const { return folder_ / "home"; }
  [[nodiscard]] std::filesystem::path users() const { return folder_ / "Users"; }
  [[nodiscard]] std::filesystem::path agentDirectory() const { return folder_ / "agent"; }
  /// Where a tool is launched from, for instance `tool("sw_vers")`.
  [[nodiscard]] std::filesystem::path tool(std::string_view name) const { return folder_ / "bin" / name; }

  /// Puts an executable into the agent's directory (a hard link, or a copy) and, beside it, default_api.txt
  /// with the address. Gives the executable's new path.
  std::filesystem::path installAgent(const std::filesystem::path& executable,
                                     std::string_view defaultAPI) const;

  /// Makes a command line (`diskutil info disk0`, as it would be typed) print something else from the next
  /// launch on. An answer that is replaced while its tool runs may be mixed from both.
  void answer(std::string_view commandLine, const Answer& answer);
  /// The machine's own answer again, from the next launch on.
  void forgetAnswer(std::string_view commandLine);

  /// Makes a command line hang from the next launch on: its tool waits, without printing anything, until
  /// release() or the end of this object. (Its answer is a FIFO, and opening that for reading waits for a
  /// writer.)
  void hold(std::string_view commandLine);
  /// Blocks until a tool waits for the held command line, gives back the machine's own answer to later
  /// launches, and lets the tool print this and exit with status 0. If the tool was killed meanwhile, the
  /// caller gets SIGPIPE.
  void release(std::string_view commandLine, std::string_view output = "");

  /// Spoils a tool as a whole from the next launch on: it answers every command line alike, and changes
  /// nothing, until restoreTool() or another of these. An answer() goes before.
  void failTool(std::string_view name, int status, std::string_view error);
  void garbageTool(std::string_view name, std::string_view bytes);
  /// The tool waits before it does its work.
  void slowTool(std::string_view name, int milliseconds);
  /// The tool hangs until restoreTool() or the end of this object; then it does its work.
  void holdTool(std::string_view name);
  void restoreTool(std::string_view name);

  // What the tools have made of the machine. Each waits for a tool that is changing it.

  /// In the order of the directory's listing, the system's own among them.
  [[nodiscard]] std::vector<std::string> accounts() const;
  [[nodiscard]] bool isAdmin(const std::string& name) const;
  /// False for a missing account and for a disabled one; one that is locked out counts as enabled.
  [[nodiscard]] bool isEnabled(const std::string& name) const;
  /// The last one that a tool has set.
  [[nodiscard]] std::optional<std::string> password(const std::string& name) const;
  /// Whether the account's policy asks for a new password at the next login.
  [[nodiscard]] bool mustChangePassword(const std::string& name) const;
  /// The folders in Users, sorted, "Shared" among them; no symbolic links.
  [[nodiscard]] std::vector<std::string> homeFolders() const;
  /// The labels in the order of `launchctl list`.
  [[nodiscard]] std::vector<std::string> loadedServices() const;
  /// Whether ps or launchctl lists the process.
  [[nodiscard]] bool isRunning(std::int64_t pid) const;
  /// The times for which restarts were ordered ("14:05"), in the order of the orders.
  [[nodiscard]] std::vector<std::string> restarts() const;

  /// The executable that runs a program with this Mac around it.
  [[nodiscard]] static std::filesystem::path sandboxExecutable();

 private:
  void buildHome() const;
  void buildTools() const;
  void buildFolders() const;
  [[nodiscard]] std::filesystem::path answerFile(std::string_view commandLine) const;
  [[nodiscard]] std::filesystem::path spoiltTool(std::string_view name) const;
  void spoilTool(std::string_view name,
                 std::initializer_list<std::pair<std::string_view, std::string>> files);

  std::filesystem::path folder_;
  std::filesystem::path machine_;
  std::set<std::filesystem::path> held_;  // the FIFOs that tools wait for
};

}  // namespace msp::lab
