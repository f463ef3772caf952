#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

namespace msp::lab {

/// What a tool prints for one command line, byte for byte.
struct Answer {
  std::string output;
  std::string error{};
  int status = 0;
};

/// A Mac in a folder, called the lab folder: the tools that an agent runs, the folders that it looks
/// into, and a directory for the agent itself.
///
///     home/         the user's home; its .bash_profile makes bin/ the whole PATH
///     bin/          one tool per name; each prints what is filed for its command line
///     machine       symbolic link to the folder of tool output (lab/mac/machines/<machine>)
///     answers/      files that go before the machine's, of the same form
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

  /// The executable that runs a program with this Mac around it.
  [[nodiscard]] static std::filesystem::path sandboxExecutable();

 private:
  void buildHome() const;
  void buildTools() const;
  void buildFolders() const;
  [[nodiscard]] std::filesystem::path answerFile(std::string_view commandLine) const;

  std::filesystem::path folder_;
  std::filesystem::path machine_;
  std::set<std::filesystem::path> held_;  // the FIFOs among the answers
};

}  // namespace msp::lab
