#include "platform/task_runner.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/captured_log.h"
#include "support/launch_test.h"

namespace msp {
namespace {

using test::CapturedLog;
using test::LaunchTest;
using Lines = std::vector<std::string>;

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// ---- What may be launched

TEST(LaunchableMode, goesByTheDecimalDigits) {
  struct Case {
    std::string name;
    int mode;
    bool expected;
  };
  const Case cases[] = {
      {"0755 is 493", 0755, true},
      {"0644 is 420: passes although it cannot be executed", 0644, true},
      {"0764 is 500: refused although it can be executed", 0764, false},
      {"0766 is 502", 0766, false},
      {"0700 is 448", 0700, true},
      {"0500 is 320", 0500, true},
      {"0777 is 511", 0777, true},
      {"0 is within -99 to 99", 0, false},
      {"0143 is 99", 0143, false},
      {"0144 is 100", 0144, false},
      {"109", 109, false},
      {"110", 110, true},
      {"189", 189, true},
      {"199", 199, true},
      {"200", 200, false},
      {"04755 is 2541: set-user-ID counts along", 04755, true},
      {"07777 is 4095", 07777, true},
      {"-99", -99, false},
      {"-100: the remainder is 0", -100, false},
      {"-109: the remainder takes the sign", -109, false},
      {"-110", -110, true},
  };
  for (const Case& row : cases) EXPECT_EQ(isLaunchableMode(row.mode), row.expected) << row.name;
}

class LaunchablePath : public LaunchTest {};

TEST_F(LaunchablePath, needsSomethingThereWithFittingPermissions) {
  tool("fit", "", 0755);
  tool("refused", "", 0764);
  const auto link = [this](const std::string& name, const std::string& target) {
    std::filesystem::create_symlink(target, file(name));
  };
  link("linkToFit", "fit");
  link("linkToRefused", "refused");
  link("dangling", "missing");
  std::filesystem::create_directory(file("directory"));
  chmod(file("directory").c_str(), 0755);
  struct Case {
    std::string name, path;
    bool expected;
  };
  const Case cases[] = {
      {"a file with mode 0755", file("fit"), true},
      {"a file with mode 0764", file("refused"), false},
      {"nothing there", file("missing"), false},
      {"a directory like anything else", file("directory"), true},
      {"a link to something", file("linkToFit"), true},
      {"a link counts with its own permissions", file("linkToRefused"), true},
      {"a link to nothing", file("dangling"), false},
      {"a path is not cut at a NUL character", file("fit") + std::string("\0x", 2), false},
      {"the empty path", "", false},
  };
  for (const Case& row : cases) EXPECT_EQ(isLaunchablePath(row.path), row.expected) << row.name;
}

// ---- From name to path

/// Answers in place of the login shell and counts the questions.
class RunnerWithShellAnswers : public TaskRunner {
 public:
  explicit RunnerWithShellAnswers(std::string answer) : answer_(std::move(answer)) {}
  std::string runCommand(const std::string& command, const std::vector<std::string>& arguments) override {
    std::string question = command;
    for (const std::string& argument : arguments) question += "|" + argument;
    questions.push_back(question);
    return answer_;
  }
  Lines questions;

 private:
  std::string answer_;
};

TEST(PathForCommand, followsTheShellsAnswer) {
  struct Case {
    std::string name, command, answer, expected;
    Lines questionsOfTwoCalls;
  };
  const Case cases[] = {
      {"a path is remembered", "tool", "/bin/tool", "/bin/tool", {"/bin/bash|-l|-c|which tool"}},
      {"an absolute path is itself", "/x/tool", "/bin/other", "/x/tool", {}},
      {"the upgrade script has its place", "macupgrade.sh", "/bin/other", "/opt/msp-agent/macupgrade.sh", {}},
      {"which is known by its name", "which", "/bin/which", "which", {}},
      {"a built-in is launched by name",
       "cd",
       "cd: shell built-in command",
       "cd",
       {"/bin/bash|-l|-c|which cd"}},
      {"built-in counts anywhere in the answer",
       "tool",
       "/opt/built-in-tools/tool",
       "tool",
       {"/bin/bash|-l|-c|which tool"}},
      {"an unknown name is asked for again",
       "tool",
       "tool not found",
       "",
       {"/bin/bash|-l|-c|which tool", "/bin/bash|-l|-c|which tool"}},
      {"not found counts only at the end",
       "tool",
       "tool not found anywhere",
       "tool not found anywhere",
       {"/bin/bash|-l|-c|which tool"}},
      {"a built-in answer replaces the text before its end is looked at",
       "tool",
       "no built-in, not found",
       "tool",
       {"/bin/bash|-l|-c|which tool"}},
      {"an empty answer is remembered", "tool", "", "", {"/bin/bash|-l|-c|which tool"}},
      {"so is one that is no path", "tool", "no idea", "no idea", {"/bin/bash|-l|-c|which tool"}},
      {"the name is asked for as it is", "a b;c", "", "", {"/bin/bash|-l|-c|which a b;c"}},
      {"the empty name", "", "", "", {"/bin/bash|-l|-c|which "}},
  };
  for (const Case& row : cases) {
    RunnerWithShellAnswers runner(row.answer);
    EXPECT_EQ(runner.pathForCommand(row.command), row.expected) << row.name;
    EXPECT_EQ(runner.pathForCommand(row.command), row.expected) << row.name;
    EXPECT_EQ(runner.questions, row.questionsOfTwoCalls) << row.name;
  }
}

/// A home folder whose login shell knows only the test's own tools, and whose `which` keeps a list of what it
/// was asked for.
class LoginShell : public LaunchTest {
 protected:
  LoginShell() {
    std::ofstream(file(".bash_profile")) << "PATH='" << file("bin") << "'\n";
    std::filesystem::create_directory(file("bin"));
    tool("bin/which",
         "cd '" + file("") +
             "'; echo \"$1\" >> asked\n"
             "if [ -f \"answers/$1\" ]; then while read -r l; do echo \"$l\"; done < \"answers/$1\"\n"
             "elif [ -x \"bin/$1\" ]; then echo \"$PWD/bin/$1\"\n"
             "else exit 1; fi");
    std::filesystem::create_directory(file("answers"));
  }
  [[nodiscard]] std::string askedFor() const {
    std::ifstream asked(file("asked"));
    return {std::istreambuf_iterator<char>(asked), {}};
  }

 private:
  test::EnvironmentValue home_{"HOME", file("")};
};

TEST_F(LoginShell, isAskedOncePerNameAndRunner) {
  tool("bin/greeting", "echo \"hello $1\"");
  const CapturedLog log;
  TaskRunner runner;
  EXPECT_EQ(runner.runCommand("greeting", {"Anna"}), "hello Anna");
  EXPECT_EQ(runner.runCommandStreaming("greeting", {"Ben"}), "hello Ben\n");
  EXPECT_EQ(askedFor(), "greeting\n");
  EXPECT_EQ(TaskRunner().runCommand("greeting", {"Cleo"}), "hello Cleo");
  EXPECT_EQ(askedFor(), "greeting\ngreeting\n");
  EXPECT_EQ(log.messages(), Lines{});
}

TEST_F(LoginShell, thatFindsNothingIsNotAskedAgain) {
  const CapturedLog log;
  TaskRunner runner;
  EXPECT_EQ(runner.runCommand("missing", {}), "");
  EXPECT_EQ(runner.runCommand("missing", {}), "");
  EXPECT_EQ(runner.runCommandStreaming("missing", {}), "");
  EXPECT_EQ(askedFor(), "missing\n");
  EXPECT_EQ(log.messages(), Lines{"Error returned from /bin/bash: "});
}

TEST_F(LoginShell, thatSaysNotFoundIsAskedAgain) {
  std::ofstream(file("answers/missing")) << "missing not found\n";
  const CapturedLog log;
  TaskRunner runner;
  EXPECT_EQ(runner.runCommand("missing", {}), "");
  EXPECT_EQ(runner.runCommandStreaming("missing", {}), "");
  EXPECT_EQ(askedFor(), "missing\nmissing\n");
  EXPECT_EQ(log.messages(), Lines{});
}

TEST_F(LoginShell, builtInsAndOddAnswersAreLookedForAsFiles) {
  std::ofstream(file("answers/cd")) << "cd: shell built-in command\n";
  std::ofstream(file("answers/odd")) << "/no/such/file\n/nor this\n";
  const CapturedLog log;
  TaskRunner runner;
  EXPECT_EQ(runner.runCommand("cd", {"/"}), "");
  EXPECT_EQ(runner.runCommandStreaming("odd", {}), "");
  EXPECT_EQ(runner.runCommand("which", {"cd"}), "");
  EXPECT_EQ(log.messages(), (Lines{"No path for command cd", "No path for command /no/such/file\n/nor this",
                                   "No path for command which"}));
}

TEST_F(LoginShell, isNotAskedForANameItCannotBeGiven) {
  const CapturedLog log;
  EXPECT_EQ(TaskRunner().runCommand(std::string("a\0b", 3), {}), "");
  EXPECT_EQ(askedFor(), "");
  EXPECT_EQ(log.messages(), Lines{"Error running /bin/bash: Invalid argument"});
}

// ---- What comes back

class RunCommand : public LaunchTest {};

TEST_F(RunCommand, handsBackTrimmedOutputAndLogsFailures) {
  struct Case {
    std::string name, body, expected;
    Lines expectedLog;
  };
  const Case cases[] = {
      {"nothing printed", "exit 0", "", {}},
      {"white space and newlines are trimmed at both ends", R"(printf '\n\t a  b\r\n \n')", "a  b", {}},
      {"standard error of a success is nobody's business", "echo x; echo bad >&2", "x", {}},
      {"a failure is logged and its output is handed back",
       "echo x; echo bad >&2; exit 1",
       "x",
       {"Error returned from %: bad\n"}},
      {"a failure without a word", "exit 3", "", {"Error returned from %: "}},
      {"a tool killed by a signal failed",
       "echo x; printf dying >&2; kill -TERM $$",
       "x",
       {"Error returned from %: dying"}},
      {"UTF-8 is text",
       R"(printf 'Jos\303\251'; printf 'caf\303\251' >&2; exit 1)",
       "José",
       {"Error returned from %: café"}},
      {"output that is no text", "printf 'a\\377'", "", {}},
      {"an error that is no text",
       "echo x; printf 'a\\377' >&2; exit 1",
       "x",
       {"Error returned from %: unknown"}},
      {"neither is text",
       "printf '\\377'; printf '\\377' >&2; exit 1",
       "",
       {"Error returned from %: unknown"}},
      {"a tool that reads its input meets its end", "cat; echo done", "done", {}},
      {"a tool that closes its streams early",
       "echo x; exec >&- 2>&-; exit 2",
       "x",
       {"Error returned from %: "}},
  };
  for (const Case& row : cases) {
    const std::string path = tool("tool", row.body);
    Lines expectedLog;
    for (const std::string& line : row.expectedLog) expectedLog.push_back(replaceAll(line, "%", path));
    const CapturedLog log;
    EXPECT_EQ(TaskRunner().runCommand(path, {}), row.expected) << row.name;
    EXPECT_EQ(log.messages(), expectedLog) << row.name;
  }
}

TEST_F(RunCommand, keepsALongErrorForTheLog) {
  const std::string path = tool("tool", "head -c 1048576 /dev/zero | tr '\\000' e >&2; echo x; exit 1");
  const CapturedLog log;
  EXPECT_EQ(TaskRunner().runCommand(path, {}), "x");
  ASSERT_EQ(log.messages().size(), 1U);
  EXPECT_TRUE(log.messages()[0] == "Error returned from " + path + ": " + std::string(1048576, 'e'));
}

TEST_F(RunCommand, waitsForAGrandchildThatHoldsTheOutputButLogsBefore) {
  const std::string proceed = gate("proceed");
  const std::string path = tool("tool", "(read line < '" + proceed +
                                            "'; head -c 1048576 /dev/zero >&2; echo late) &\n"
                                            "echo early; echo bad >&2; exit 1");
  // The grandchild goes on only when the failure has been logged.
  Lines messages;
  const EventSink before = setEventSink([&](const std::string& message) {
    messages.push_back(message);
    open(proceed);
  });
  EXPECT_EQ(TaskRunner().runCommand(path, {}), "early\nlate");
  setEventSink(before);
  EXPECT_EQ(messages, Lines{"Error returned from " + path + ": bad\n"});
}

TEST_F(RunCommand, doesNotWaitForAGrandchildThatHoldsStandardError) {
  const std::string end = gate("end");
  const std::string path =
      tool("tool", "(read line < '" + end + "') > /dev/null &\necho x; echo bad >&2; exit 1");
  const CapturedLog log;
  EXPECT_EQ(TaskRunner().runCommand(path, {}), "x");
  EXPECT_EQ(log.messages(), Lines{"Error returned from " + path + ": bad\n"});
  open(end);
}

class RunCommandStreaming : public LaunchTest {};

TEST_F(RunCommandStreaming, handsBackBothStreamsAsTheyCame) {
  struct Case {
    std::string name, body, expected;
  };
  const Case cases[] = {
      {"nothing printed", "exit 0", ""},
      {"both streams in the order of printing", "echo a; echo b >&2; echo c", "a\nb\nc\n"},
      {"nothing is trimmed", R"(printf '\n x \n\n')", "\n x \n\n"},
      {"the exit status is not looked at", "echo x; exit 1", "x\n"},
      {"nor is a signal", "echo x; kill -TERM $$", "x\n"},
      {"output that is no text", "printf 'a\\377'", ""},
      {"standard error that is no text", "echo a; printf '\\377' >&2", ""},
      {"a tool that reads its input meets its end", "cat; echo done", "done\n"},
      {"a tool that closes its streams early", "echo x; exec >&- 2>&-; exit 2", "x\n"},
  };
  const CapturedLog log;
  TaskRunner runner;
  for (const Case& row : cases) {
    EXPECT_EQ(runner.runCommandStreaming(tool("tool", row.body), {}), row.expected) << row.name;
  }
  EXPECT_EQ(log.messages(), Lines{});
}

TEST_F(RunCommandStreaming, doesNotWaitForAGrandchild) {
  const std::string end = gate("end");
  const std::string path = tool("tool", "(read line < '" + end + "'; echo late) &\necho early");
  EXPECT_EQ(TaskRunner().runCommandStreaming(path, {}), "early\n");
  // Its late output meets a closed pipe.
  open(end);
}

// ---- What cannot be launched

class RefusedLaunch : public LaunchTest {};

TEST_F(RefusedLaunch, isLoggedByOneKindOfRunAndSilentInTheOther) {
  const std::string fit = tool("fit", "echo x");
  const std::string noProgram = tool("noProgram", "", 0755);
  std::ofstream(noProgram) << "no program";
  struct Case {
    std::string name, command;
    std::vector<std::string> arguments;
    std::string expectedLog;
  };
  const Case cases[] = {
      {"no execute permission, although the mode passes", tool("data", "", 0644), {}, "Permission denied"},
      {"no program", noProgram, {}, "Exec format error"},
      {"an argument with a NUL character", fit, {std::string("a\0b", 3)}, "Invalid argument"},
      {"an argument that is too long", fit, {std::string(32 << 20, 'x')}, "Argument list too long"},
  };
  for (const Case& row : cases) {
    const CapturedLog log;
    TaskRunner runner;
    EXPECT_EQ(runner.runCommand(row.command, row.arguments), "") << row.name;
    EXPECT_EQ(runner.runCommandStreaming(row.command, row.arguments), "") << row.name;
    EXPECT_EQ(log.messages(), Lines{"Error running " + row.command + ": " + row.expectedLog}) << row.name;
  }
}

TEST_F(RefusedLaunch, namesThePathThatMayNotBeLaunched) {
  const std::string paths[] = {file("missing"), tool("refused", "echo x", 0764),
                               tool("fit", "echo x") + std::string("\0x", 2)};
  for (const std::string& path : paths) {
    const CapturedLog log;
    TaskRunner runner;
    EXPECT_EQ(runner.runCommand(path, {}), "");
    EXPECT_EQ(runner.runCommandStreaming(path, {}), "");
    EXPECT_EQ(log.messages(), (Lines{"No path for command " + path, "No path for command " + path}));
  }
}

TEST_F(RefusedLaunch, forLackOfDescriptorsIsOverWhenThereAreSomeAgain) {
  const std::string path = tool("tool", "echo x");
  const CapturedLog log;
  TaskRunner runner;
  {
    const test::ScarceDescriptors scarce(3);
    EXPECT_EQ(runner.runCommand(path, {}), "");
    EXPECT_EQ(runner.runCommandStreaming(path, {}), "");
  }
  EXPECT_EQ(runner.runCommand(path, {}), "x");
  EXPECT_EQ(log.messages(), Lines{"Error running " + path + ": Too many open files"});
}

}  // namespace
}  // namespace msp
