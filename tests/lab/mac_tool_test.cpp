#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "lab/running_program.h"
#include "mac/simulated_mac.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

namespace fs = std::filesystem;
using lab::SimulatedMac;

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> result;
  for (std::string word; stream >> word;) result.push_back(word);
  return result;
}

class MacTool : public testing::Test {
 protected:
  /// Launches a command line, written with blanks between its arguments.
  Finished run(const std::string& commandLine) const { return run(mac_, commandLine); }
  static Finished run(const SimulatedMac& where, const std::string& commandLine) {
    auto command = words(commandLine);
    command.front() = where.tool(command.front());
    return runProgram(command);
  }
  std::string folder() const { return mac_.folder().string(); }

  TemporaryDirectory place_;
  SimulatedMac mac_{place_.file("lab"), "intel-ventura"};
};

std::string longText(std::size_t size) { return std::string(size, 'x'); }

int filedStatus(const fs::path& file) { return fs::exists(file) ? std::stoi(contentOf(file)) : 0; }

std::string withStart(const std::string& text, std::string_view start, std::string_view by) {
  return text.starts_with(start) ? std::string(by) + text.substr(start.size()) : text;
}

/// The command line that a file's name stands for: with its slashes, and the only argument that holds blanks.
std::vector<std::string> asTyped(const std::string& fileName) {
  constexpr std::string_view kHint = "Ask Varnex to reset if you forget.";
  std::vector<std::string> command;
  std::istringstream pieces(fileName);
  for (std::string piece; std::getline(pieces, piece, ' ');) {
    if (!command.empty() && kHint.starts_with(command.back() + " ")) {
      command.back() += " " + piece;
      continue;
    }
    if (!command.empty()) {
      piece = withStart(piece, "_Users_", "/Users/");
      piece = withStart(piece, "_Groups_", "/Groups/");
      piece = withStart(piece, "_Library_LaunchDaemons_", "/Library/LaunchDaemons/");
      piece = withStart(piece, "system_", "system/");
    }
    command.push_back(piece == "_" ? "/" : piece);
  }
  return command;
}

class EveryMachine : public testing::TestWithParam<const char*> {};

TEST_P(EveryMachine, answersEveryFiledCommandLineByteForByte) {
  const TemporaryDirectory place;
  const SimulatedMac mac(place.file("lab"), GetParam());
  int commandLines = 0;
  for (const auto& entry : fs::directory_iterator(mac.folder() / "machine")) {
    const auto name = entry.path().filename().string();
    auto command = asTyped(name);
    if (name.ends_with(".stderr") || name.ends_with(".status") || !fs::exists(mac.tool(command.front())))
      continue;

    command.front() = mac.tool(command.front());
    const auto finished = runProgram(command);
    const auto path = entry.path().string();
    EXPECT_EQ(finished.output, contentOf(path)) << name;
    EXPECT_EQ(finished.error, contentOf(path + ".stderr")) << name;
    EXPECT_EQ(finished.status, filedStatus(path + ".status")) << name;
    fs::remove(mac.folder() / "state.json");  // each on a machine as it was at first
    ++commandLines;
  }
  EXPECT_GT(commandLines, 100);
}

TEST_P(EveryMachine, hasAToolForEveryFiledCommandLine) {
  const TemporaryDirectory place;
  const SimulatedMac mac(place.file("lab"), GetParam());
  for (const auto& entry : fs::directory_iterator(mac.folder() / "machine")) {
    const auto tool = words(entry.path().filename().string()).front();
    if (tool == "machine.md" || tool == "platform.json" || tool == "InstallHistory.plist") continue;
    EXPECT_TRUE(fs::exists(mac.tool(tool))) << tool;
  }
}

TEST_P(EveryMachine, hasTheFoldersThatItsPlatformFileLists) {
  const TemporaryDirectory place;
  const SimulatedMac mac(place.file("lab"), GetParam());
  EXPECT_TRUE(fs::is_directory(mac.users() / "Shared"));
  EXPECT_TRUE(fs::is_regular_file(mac.users() / ".localized"));
  EXPECT_EQ(contentOf(mac.folder() / "Library/Receipts/InstallHistory.plist"),
            contentOf(mac.folder() / "machine/InstallHistory.plist"));
  EXPECT_FALSE(fs::is_empty(mac.folder() / "Library/LaunchDaemons"));
  EXPECT_TRUE(fs::is_directory(mac.folder() / "System/Library/LaunchAgents"));
}

INSTANTIATE_TEST_SUITE_P(Machines, EveryMachine, testing::Values("intel-ventura", "m2-sonoma", "m4-sequoia"),
                         [](const auto& machine) {
                           std::string name = machine.param;
                           name.replace(name.find('-'), 1, "_");
                           return name;
                         });

TEST_F(MacTool, readsASlashInAnArgumentAsAnUnderscoreInTheFileName) {
  EXPECT_EQ(run("df -k /").output, contentOf(folder() + "/machine/df -k _"));
  const auto finished = run("dscl . -delete /Users/nosuchuser");
  EXPECT_NE(finished.error, "");
  EXPECT_EQ(finished.error, contentOf(folder() + "/machine/dscl . -delete _Users_nosuchuser.stderr"));
  EXPECT_EQ(finished.status, 185);
}

TEST_F(MacTool, printsNothingAndExitsWithOneForACommandLineWithoutAFile) {
  for (const auto* commandLine : {"sw_vers -productName", "pwpolicy -u frontdesk", "uptime .", "who -q"}) {
    const auto finished = run(commandLine);
    EXPECT_EQ(finished.output, "") << commandLine;
    EXPECT_EQ(finished.error, "") << commandLine;
    EXPECT_EQ(finished.status, 1) << commandLine;
  }
}

TEST_F(MacTool, tellsTwoArgumentsFromOneThatIsEmpty) {
  mac_.answer("who a  b", {.output = "an empty one between\n"});
  EXPECT_EQ(runProgram({mac_.tool("who"), "a", "", "b"}).output, "an empty one between\n");
  EXPECT_EQ(runProgram({mac_.tool("who"), "a", "b"}).status, 1);
}

TEST_F(MacTool, whichKnowsTheLabsToolsAndNothingElse) {
  struct Case {
    std::string_view name;
    std::vector<std::string> arguments, found;
    int status;
  };
  const Case cases[] = {
      {"a tool", {"df"}, {"df"}, 0},
      {"two tools, each on its line", {"df", "sw_vers"}, {"df", "sw_vers"}, 0},
      {"a program of the machine below", {"awk"}, {}, 1},
      {"one of two", {"awk", "df"}, {"df"}, 1},
      {"the empty name", {""}, {}, 1},
      {"the folder itself", {"."}, {}, 1},
      {"a way out of the folder", {"../../../../../../../bin/ls"}, {}, 1},
      {"an absolute path", {"/bin/ls"}, {}, 1},
      {"a name too long for a file", {std::string(NAME_MAX + 1, 'x')}, {}, 1},
      {"a name too long for a path", {std::string(PATH_MAX, 'x')}, {}, 1},
  };
  for (const auto& row : cases) {
    std::string expected;
    for (const auto& tool : row.found) expected += mac_.tool(tool).string() + "\n";
    std::vector<std::string> command = {mac_.tool("which")};
    command.insert(command.end(), row.arguments.begin(), row.arguments.end());
    const auto finished = runProgram(command);
    EXPECT_EQ(finished.output, expected) << row.name;
    EXPECT_EQ(finished.error, "") << row.name;
    EXPECT_EQ(finished.status, row.status) << row.name;
  }
}

TEST_F(MacTool, isWhatALoginShellFinds) {
  const std::vector<std::string> environment = {"HOME=" + mac_.home().string()};
  auto look = [&](const std::string& script) {
    return RunningProgram({"/bin/bash", "-l", "-c", script}, environment).wait();
  };
  EXPECT_EQ(look("which sw_vers").output, mac_.tool("sw_vers").string() + "\n");
  EXPECT_EQ(look("which kill").output, mac_.tool("kill").string() + "\n");
  EXPECT_EQ(look("which awk").output, "");
  EXPECT_EQ(look("which awk").status, 1);
  EXPECT_EQ(look("echo \"$PATH\"").output, folder() + "/bin\n");
  EXPECT_EQ(look("sw_vers").output, contentOf(folder() + "/machine/sw_vers"));
}

TEST_F(MacTool, worksInAFolderWithBlanksAndQuotesInItsName) {
  const SimulatedMac odd(place_.file("it's an \"odd\" $HOME"), "m4-sequoia");
  const std::vector<std::string> environment = {"HOME=" + odd.home().string()};
  EXPECT_EQ(RunningProgram({"/bin/bash", "-l", "-c", "which sw_vers"}, environment).wait().output,
            odd.tool("sw_vers").string() + "\n");
  EXPECT_EQ(run(odd, "sw_vers").output, contentOf(odd.folder() / "machine/sw_vers"));
}

TEST_F(MacTool, answersAsTheWirelessToolThroughItsLink) {
  const auto path =
      folder() + "/System/Library/PrivateFrameworks/Apple80211.framework/Versions/Current/Resources/airport";
  EXPECT_EQ(runProgram({path, "-I"}).output, contentOf(folder() + "/machine/airport -I"));
  EXPECT_EQ(runProgram({path, "-s"}).status, 1);
}

TEST_F(MacTool, saysSoWhenItIsNotLaunchedFromALab) {
  const auto program = fs::canonical(mac_.tool("who"));
  const auto finished = runProgram({program});
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.error, "mac-tool: not launched as <lab>/bin/<tool>\n");
  EXPECT_EQ(finished.status, 2);
}

TEST_F(MacTool, printsTheAnswerThatATestChose) {
  struct Case {
    std::string_view name;
    std::string commandLine;
    lab::Answer answer;
  };
  const Case cases[] = {
      {"other text", "sw_vers", {.output = "garbage"}},
      {"nothing", "sw_vers", {.output = ""}},
      {"all three", "uptime", {.output = "out\n", .error = "err\n", .status = 255}},
      {"malformed UTF-8 and NUL", "who", {.output = std::string("\xff\xc3\0\n", 4), .error = "\x80"}},
      {"more than any buffer holds", "launchctl list", {.output = longText(11'000'000)}},
      {"a command line that the machine does not know", "df -k /Volumes/a", {.output = "new\n"}},
      {"a tool that cannot be found", "which sw_vers", {.output = "sw_vers not found\n", .status = 1}},
  };
  for (const auto& row : cases) {
    mac_.answer(row.commandLine, row.answer);
    const auto finished = run(row.commandLine);
    EXPECT_TRUE(finished.output == row.answer.output) << row.name;
    EXPECT_EQ(finished.error, row.answer.error) << row.name;
    EXPECT_EQ(finished.status, row.answer.status) << row.name;
  }
}

TEST_F(MacTool, printsTheMachinesAnswerAgainOnceTheChosenOneIsForgotten) {
  mac_.answer("id nosuchuser", {.output = "uid=501(nosuchuser)\n"});
  EXPECT_EQ(run("id nosuchuser").status, 0);
  mac_.forgetAnswer("id nosuchuser");
  const auto finished = run("id nosuchuser");
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.error, "id: nosuchuser: no such user\n");
  EXPECT_EQ(finished.status, 1);
}

TEST_F(MacTool, hasNoFileForACommandLineThatIsTooLongForAFileName) {
  const std::string longest(NAME_MAX - std::string_view("who ").size(), 'x');
  mac_.answer("who xx", {.output = "short\n"});
  fs::rename(mac_.folder() / "answers/who xx", mac_.folder() / "answers" / ("who " + longest));
  EXPECT_EQ(run("who " + longest).output, "short\n");
  for (const auto& argument : {longest + "x", longText(100'000)}) {
    const auto finished = run("who " + argument);
    EXPECT_EQ(finished.output, "");
    EXPECT_EQ(finished.error, "");
    EXPECT_EQ(finished.status, 1);
  }
}

TEST_F(MacTool, hangsUntilItIsReleased) {
  mac_.hold("sw_vers");
  RunningProgram tool({mac_.tool("sw_vers")});
  EXPECT_TRUE(tool.runs());
  mac_.release("sw_vers", "late\n");
  const auto finished = tool.wait();
  EXPECT_EQ(finished.output, "late\n");
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(run("sw_vers").output, contentOf(folder() + "/machine/sw_vers"));
}

TEST_F(MacTool, isOnlyReleasedWhenItWasHeld) {
  EXPECT_THROW(mac_.release("sw_vers"), std::runtime_error);
  mac_.answer("sw_vers", {.output = "text"});
  EXPECT_THROW(mac_.release("sw_vers"), std::runtime_error);
}

/// Waits until a process has gone to sleep, which a held tool does only where it waits for its writer.
void waitUntilAsleep(const RunningProgram& program) {
  const auto file = "/proc/" + std::to_string(program.id()) + "/stat";
  for (std::string facts; program.runs(); std::this_thread::yield()) {
    facts = contentOf(file);
    const auto state = facts.rfind(") ");
    if (state != std::string::npos && facts.substr(state + 2, 1) == "S") return;
  }
}

TEST_F(MacTool, endsWhenItsHoldIsTakenAway) {
  struct Case {
    std::string_view name;
    void (*takeAway)(SimulatedMac&);
  };
  const Case cases[] = {
      {"forgotten", [](SimulatedMac& held) { held.forgetAnswer("who"); }},
      {"answered", [](SimulatedMac& held) { held.answer("who", {.output = "for the next launch\n"}); }},
      {"held again", [](SimulatedMac& held) { held.hold("who"); }},
  };
  for (const auto& row : cases) {
    mac_.hold("who");
    RunningProgram tool({mac_.tool("who")});
    waitUntilAsleep(tool);
    row.takeAway(mac_);
    const auto finished = tool.wait();
    EXPECT_EQ(finished.output, "") << row.name;
    EXPECT_EQ(finished.status, 0) << row.name;
  }
}

TEST_F(MacTool, endsWithTheSimulatedMac) {
  auto other = std::make_unique<SimulatedMac>(place_.file("other"), "m2-sonoma");
  other->hold("who");
  RunningProgram first({other->tool("who")}), second({other->tool("who")});
  waitUntilAsleep(first);
  waitUntilAsleep(second);
  other.reset();
  EXPECT_EQ(first.wait().status, 0);
  EXPECT_EQ(second.wait().status, 0);
}

TEST_F(MacTool, survivesALabFolderThatIsGoneBeforeItsObject) {
  mac_.hold("who");
  fs::remove_all(mac_.folder());
}

TEST_F(MacTool, needsAFolderOfItsOwnAndAKnownMachine) {
  EXPECT_THROW(SimulatedMac(mac_.folder(), "m2-sonoma"), std::runtime_error);
  EXPECT_THROW(SimulatedMac(place_.file("another"), "m3-unknown"), std::runtime_error);
  EXPECT_FALSE(fs::exists(place_.file("another")));
}

TEST_F(MacTool, standsBesideAnAgentInItsDirectory) {
  const auto agent = mac_.installAgent("/bin/cat", "http://127.0.0.1:8080/api\n");
  EXPECT_EQ(agent, mac_.agentDirectory() / "msp-agent");
  EXPECT_EQ(runProgram({agent, (mac_.agentDirectory() / "default_api.txt").string()}).output,
            "http://127.0.0.1:8080/api\n");
}

}  // namespace
}  // namespace msp::test
