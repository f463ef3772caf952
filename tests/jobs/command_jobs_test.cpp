#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "jobs/jobs_manager.h"
#include "platform/time_format.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

/// A job of a type, with arguments as the server sends them: a text.
Job job(const std::string& type, const std::string& arguments) {
  return Job{{"id", "7"}, {"type", type}, {"arguments", arguments}};
}

JobResult answer(std::string message, std::int64_t success) {
  return {.id = 7, .message = std::move(message), .success = success};
}

class CommandJobs : public testing::Test {
 protected:
  JobResult execute(const std::string& command) {
    return jobs_.executeCommand(job("execute_command", Json{{"command", command}}.dump()));
  }
  JobResult kill(const std::string& pid) {
    return jobs_.killProcess(job("kill_process", Json{{"pid", pid}}.dump()));
  }

  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
  JobsManager jobs_{host_, http_};
};

TEST_F(CommandJobs, whatACommandPrintsIsItsMessageAndDecidesItsSuccess) {
  host_.runner().answer("echo hi", "hi");
  EXPECT_EQ(execute("echo hi"), answer("hi", 1));
  EXPECT_EQ(execute("true"), answer("", 0)) << "a command that succeeds silently";
  EXPECT_EQ(host_.runner().commandLines(), (Lines{"echo hi", "true"}));
  EXPECT_EQ(host_.runnersMade(), 2) << "a fresh one each";
  EXPECT_EQ(log_.messages(), Lines{});
}

/// Remembers a command's arguments one by one.
class ArgumentsHost : public test::FakeHost {
 public:
  mutable Lines arguments;
  [[nodiscard]] std::unique_ptr<TaskRunner> makeTaskRunner() const override {
    return std::make_unique<Runner>(arguments);
  }

 private:
  class Runner : public TaskRunner {
   public:
    explicit Runner(Lines& seen) : seen_(seen) {}
    std::string runCommand(const std::string& command, const Lines& words) override {
      seen_ = {command};
      seen_.insert(seen_.end(), words.begin(), words.end());
      return "done";
    }

   private:
    Lines& seen_;
  };
};

TEST_F(CommandJobs, aCommandIsCutAtEveryWhiteSpaceCharacter) {
  struct Case {
    std::string name, command;
    Lines words;
  };
  const std::string nul("a\0b", 3);
  const Case cases[] = {
      {"a name and two arguments", "ls -l /tmp", {"ls", "-l", "/tmp"}},
      {"two blanks pass an empty argument", "ls  -l /tmp", {"ls", "", "-l", "/tmp"}},
      {"a blank in front makes the name empty", " ls", {"", "ls"}},
      {"a blank behind passes an empty argument", "ls ", {"ls", ""}},
      {"nothing is one empty name", "", {""}},
      {"a tab cuts", "ls\t-l", {"ls", "-l"}},
      {"other white space cuts", "ls\u00A0-l\u3000-a", {"ls", "-l", "-a"}},
      {"a newline does not cut", "printf a\nb", {"printf", "a\nb"}},
      {"there is no quoting", "echo 'a b' \"c\" \\ d", {"echo", "'a", "b'", "\"c\"", "\\", "d"}},
      {"there is no shell", "echo *;ls|cat $HOME", {"echo", "*;ls|cat", "$HOME"}},
      {"a NUL character stays", "echo " + nul, {"echo", nul}},
      {"an absolute path", "/bin/ls /", {"/bin/ls", "/"}},
  };
  for (const Case& row : cases) {
    const ArgumentsHost host;
    EXPECT_EQ(JobsManager(host, http_)
                  .executeCommand(job("execute_command", Json{{"command", row.command}}.dump())),
              answer("done", 1))
        << row.name;
    EXPECT_EQ(host.arguments, row.words) << row.name;
  }
}

TEST_F(CommandJobs, aCommandOfManyWordsReachesTheRunnerWhole) {
  const ArgumentsHost host;
  std::string command = "true";
  for (int i = 0; i < 100000; ++i) command += " x";
  EXPECT_EQ(
      JobsManager(host, http_).executeCommand(job("execute_command", Json{{"command", command}}.dump())),
      answer("done", 1));
  EXPECT_EQ(host.arguments.size(), 100001U);
}

TEST_F(CommandJobs, aWordThatNoProgramCanGetIsARefusedLaunch) {
  // The real runner: what a program would be given is cut off at a NUL character.
  const Json arguments{{"command", std::string("/bin/echo a\0b", 13)}};
  EXPECT_EQ(JobsManager(systemHost(), http_).executeCommand(job("execute_command", arguments.dump())),
            answer("", 0));
  EXPECT_EQ(log_.messages(), Lines{"Error running /bin/echo: Invalid argument"});
}

TEST_F(CommandJobs, withoutACommandNothingRuns) {
  struct Case {
    std::string name;
    Job job;
    std::string message;
    std::string line;
  };
  const Case cases[] = {
      {"no arguments", Job{{"id", "7"}, {"type", "execute_command"}},
       "Error - unable to parse command to execute",
       "Unable to parse args for execute command: execute_command"},
      {"arguments that are an object, not a text",
       Job{{"id", "7"}, {"type", "execute_command"}, {"arguments", Json{{"command", "ls"}}}},
       "Error - unable to parse command to execute",
       "Unable to parse args for execute command: execute_command"},
      {"an empty object", job("execute_command", "{}"), "Error - unable to find command to execute",
       "Unable to find command: execute_command: [:]"},
      {"a number", job("execute_command", R"({"command": 5})"), "Error - unable to find command to execute",
       R"(Unable to find command: execute_command: ["command": 5])"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    EXPECT_EQ(jobs_.executeCommand(row.job), answer(row.message, 0)) << row.name;
    EXPECT_EQ(log.messages(), Lines{row.line}) << row.name;
  }
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
}

TEST_F(CommandJobs, aProcessIsAskedToEndByItsIdAsItCame) {
  EXPECT_EQ(kill("312"), answer("", 1));
  EXPECT_EQ(kill("Finder"), answer("", 1)) << "not validated";
  EXPECT_EQ(kill("-9 1"), answer("", 1)) << "one argument whatever it holds";
  EXPECT_EQ(host_.runner().commandLines(), (Lines{"kill 312", "kill Finder", "kill '-9 1'"}));
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(CommandJobs, onlyOneKindOfOutputMakesAKillFail) {
  host_.runner().answer("kill 1", "kill: kill 1 failed: no such process");
  EXPECT_EQ(kill("1"), answer("Error - kill: kill 1 failed: no such process", 0));
  EXPECT_EQ(log_.messages(), Lines{R"(No task with that ID: kill_process: ["pid": "1"])"});

  host_.runner().answer("kill 2", "kill 2 failed: no such process.");
  EXPECT_EQ(kill("2"), answer("", 1)) << "not at the end";
  host_.runner().answer("kill 3", "kill: 3: No such process");
  EXPECT_EQ(kill("3"), answer("", 1)) << "other words";
}

TEST_F(CommandJobs, withoutAProcessIdNothingIsKilled) {
  struct Case {
    std::string name;
    Job job;
    std::string message;
    std::string line;
  };
  const Case cases[] = {
      {"no arguments", Job{{"id", "7"}, {"type", "kill_process"}},
       "Error - unable to parse command to execute", "Unable to parse args for kill command: kill_process"},
      {"an empty object", job("kill_process", "{}"), "Error - unable to extract process ID.",
       "Unable to find process ID: kill_process: [:]"},
      {"a number", job("kill_process", R"({"pid": 123})"), "Error - unable to extract process ID.",
       R"(Unable to find process ID: kill_process: ["pid": 123])"},
  };
  for (const Case& row : cases) {
    const test::CapturedLog log;
    EXPECT_EQ(jobs_.killProcess(row.job), answer(row.message, 0)) << row.name;
    EXPECT_EQ(log.messages(), Lines{row.line}) << row.name;
  }
  EXPECT_EQ(host_.runner().commandLines(), Lines{});
}

TEST_F(CommandJobs, theRestartIsInOneMinuteWhateverTheToolSays) {
  const auto inOneMinute = [] {
    return "shutdown -r " + formatClockTime(std::chrono::system_clock::now() + std::chrono::minutes(1));
  };
  const std::string before = inOneMinute();
  host_.runner().answer(before, "shutdown: NOT super-user");
  EXPECT_EQ(jobs_.restart(Job{{"id", "7"}, {"type", "restart"}}), answer("Restarting", 1));
  const std::string after = inOneMinute();
  ASSERT_EQ(host_.runner().commandLines().size(), 1U);
  const std::string& line = host_.runner().commandLines().front();
  EXPECT_TRUE(line == before || line == after) << line;
  EXPECT_EQ(log_.messages(), Lines{});
}

}  // namespace
}  // namespace msp
