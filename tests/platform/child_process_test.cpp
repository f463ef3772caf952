#include "platform/child_process.h"

#include <pthread.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <latch>
#include <thread>

#include "support/denied_system_calls.h"
#include "support/launch_test.h"

namespace msp {
namespace {

using test::LaunchTest;
using Output = ChildProcess::Output;

struct Printed {
  int status = -1;
  std::string output;
  std::string error;
};

/// All that a child prints while it lives.
Printed run(const std::string& path, const std::vector<std::string>& arguments = {},
            Output output = Output::separate) {
  ChildProcess child;
  EXPECT_EQ(child.launch(path, arguments, output), 0) << path;
  Printed printed;
  printed.status = child.collectUntilExit(printed.output, printed.error);
  return printed;
}

// ---- Launching

class Launch : public LaunchTest {};

TEST_F(Launch, isRefusedWithTheSystemsReason) {
  const std::string program = tool("program", "exit 0");
  tool("data", "exit 0", 0644);
  std::ofstream(tool("garbage", "")) << "neither a program nor a script";
  struct Case {
    std::string name, path;
    std::vector<std::string> arguments;
    int expected;
  };
  const Case cases[] = {
      {"nothing there", file("missing"), {}, ENOENT},
      {"the empty path", "", {}, ENOENT},
      {"a directory", file(""), {}, EACCES},
      {"a file without execute permission", file("data"), {}, EACCES},
      {"a file that is no program", file("garbage"), {}, ENOEXEC},
      {"a path through a file", program + "/x", {}, ENOTDIR},
      {"a path with a NUL character is not cut short", program + std::string("\0x", 2), {}, EINVAL},
      {"nor is an argument", program, {"a", std::string("b\0c", 3)}, EINVAL},
      {"an argument that is too long", program, {std::string(32 << 20, 'x')}, E2BIG},
  };
  for (const Case& row : cases) {
    for (const Output output : {Output::separate, Output::merged}) {
      ChildProcess child;
      EXPECT_EQ(child.launch(row.path, row.arguments, output), row.expected) << row.name;
    }
  }
}

TEST_F(Launch, isRefusedWhenDescriptorsRunOutAtAnyMoment) {
  for (const auto& [output, needed] : {std::pair(Output::separate, 6), std::pair(Output::merged, 4)}) {
    for (int free = 0; free <= needed; ++free) {
      const test::ScarceDescriptors scarce(free);
      Printed printed;
      ChildProcess child;
      const int problem = child.launch("/bin/echo", {"enough"}, output);
      EXPECT_EQ(problem, free < needed ? EMFILE : 0) << free;
      if (problem != 0) continue;
      EXPECT_EQ(child.collectUntilExit(printed.output, printed.error), 0);
      EXPECT_EQ(printed.output, "enough\n");
    }
  }
}

TEST_F(Launch, isRefusedWhenProcessesRunOut) {
  const bool arranged = test::runWithoutProcesses([] {
    ChildProcess child;
    EXPECT_EQ(child.launch("/bin/echo", {}, Output::separate), EAGAIN);
  });
  if (!arranged) GTEST_SKIP() << "this system cannot be kept from starting processes";
}

TEST_F(Launch, passesEachArgumentAsItIs) {
  const std::string program = tool("program", "for argument; do printf '<%s>' \"$argument\"; done");
  EXPECT_EQ(run(program, {"a b", "", "$HOME", "*", "line\nbreak", "'\"\\", "José"}).output,
            "<a b><><$HOME><*><line\nbreak><'\"\\><José>");
}

TEST_F(Launch, handsDownEnvironmentAndWorkingDirectory) {
  const test::EnvironmentValue value("MSP_TEST_VALUE", "inherited");
  EXPECT_EQ(run("/bin/sh", {"-c", "printf '%s %s' \"$MSP_TEST_VALUE\" \"$(pwd -P)\""}).output,
            "inherited " + std::filesystem::canonical(".").string());
}

TEST_F(Launch, givesTheToolAnInputThatHasEnded) {
  EXPECT_EQ(run("/bin/sh", {"-c", "cat; printf ended"}).output, "ended");
}

TEST_F(Launch, startsWithDefaultSignalsInAProcessGroupOfItsOwn) {
  if (access("/proc/self/status", R_OK) != 0) GTEST_SKIP() << "no /proc to look at";
  const std::string program = tool("program",
                                   "while read -r name value; do\n"
                                   "  case $name in SigBlk: | SigIgn:) echo \"$name $value\" ;; esac\n"
                                   "done < /proc/self/status\n"
                                   "read -r process name state parent group rest < /proc/self/stat\n"
                                   "[ \"$process\" = \"$group\" ] && echo 'leads its group'");
  const auto pipeBefore = std::signal(SIGPIPE, SIG_IGN);
  const auto hangUpBefore = std::signal(SIGHUP, SIG_IGN);
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigaddset(&blocked, SIGTERM);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);

  EXPECT_EQ(run(program).output, "SigBlk: 0000000000000000\nSigIgn: 0000000000000000\nleads its group\n");

  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  std::signal(SIGPIPE, pipeBefore);
  std::signal(SIGHUP, hangUpBefore);
}

TEST_F(Launch, handsOverOnlyTheStandardDescriptorsWhateverOtherThreadsLaunch) {
  const Descriptor inheritable(::open("/dev/null", O_RDONLY));
  constexpr int kThreads = 32;
  constexpr int kLaunches = 4;
  const std::vector<std::string> listDescriptors{
      "-c", "n=0; while [ $n -lt 256 ]; do [ -e /dev/fd/$n ] && echo $n; n=$((n + 1)); done; exit 0"};
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      const Output output = number % 2 == 0 ? Output::separate : Output::merged;
      start.arrive_and_wait();
      for (int launch = 0; launch < kLaunches; ++launch) {
        EXPECT_EQ(run("/bin/sh", listDescriptors, output).output, "0\n1\n2\n");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(Launch, isWaitedForEvenWhenNobodyCollects) {
  const std::string endless = tool("endless", "while :; do echo more; done");
  ChildProcess child;
  // Ends by SIGPIPE when the pipes are closed.
  EXPECT_EQ(child.launch(endless, {}, Output::separate), 0);
}

// ---- Collecting, with an exit descriptor and without

using Surroundings = bool (*)(const std::function<void()>&);

bool runAsTheSystemIs(const std::function<void()>& work) {
  work();
  return true;
}

class Collecting : public LaunchTest, public testing::WithParamInterface<Surroundings> {
 protected:
  static void inSurroundings(const std::function<void()>& work) {
    if (!GetParam()(work)) GTEST_SKIP() << "this system cannot be kept from giving exit descriptors";
  }
};

INSTANTIATE_TEST_SUITE_P(, Collecting, testing::Values(runAsTheSystemIs, test::runWithoutExitDescriptors),
                         [](const testing::TestParamInfo<Surroundings>& test) {
                           return test.param == runAsTheSystemIs ? "WithExitDescriptor"
                                                                 : "WithoutExitDescriptor";
                         });

struct CollectCase {
  std::string name, body;
  int status;
  std::string output, error, merged;
};

TEST_P(Collecting, tellsStatusAndBothStreams) {
  const CollectCase cases[] = {
      {"nothing printed", "exit 0", 0, "", "", ""},
      {"both streams, in the order of printing where they are one", "printf a; printf b >&2; printf c", 0,
       "ac", "b", "abc"},
      {"text stays as it is", R"(printf '\n x \n\n')", 0, "\n x \n\n", "", "\n x \n\n"},
      {"bytes stay as they are", "printf 'a\\000\\377'", 0, std::string("a\0\377", 3), "",
       std::string("a\0\377", 3)},
      {"the exit status", "printf x; exit 7", 7, "x", "", "x"},
      {"the highest exit status", "exit 255", 255, "", "", ""},
      {"a signal counts by its number", "printf x; kill -KILL $$", SIGKILL, "x", "", "x"},
      {"a broken pipe kills as it always does", "kill -PIPE $$", SIGPIPE, "", "", ""},
      {"both streams closed at once", "exec >&- 2>&-; exit 3", 3, "", "", ""},
  };
  for (const CollectCase& row : cases) {
    const std::string program = tool("program", row.body);
    inSurroundings([&] {
      const Printed separate = run(program);
      EXPECT_EQ(separate.status, row.status) << row.name;
      EXPECT_EQ(separate.output, row.output) << row.name;
      EXPECT_EQ(separate.error, row.error) << row.name;
      const Printed merged = run(program, {}, Output::merged);
      EXPECT_EQ(merged.status, row.status) << row.name;
      EXPECT_EQ(merged.output, row.merged) << row.name;
      EXPECT_EQ(merged.error, "") << row.name;
    });
  }
}

TEST_P(Collecting, takesMoreThanPipesHold) {
  constexpr std::size_t kSize = 10 << 20;
  const std::string bulk = "head -c " + std::to_string(kSize) + " /dev/zero | tr '\\000' ";
  const std::string toOutput = tool("output", bulk + "o");
  const std::string toError = tool("error", bulk + "e >&2");
  const std::string toBoth = tool("both", bulk + "e >&2; " + bulk + "o");
  const std::string outputs(kSize, 'o');
  const std::string errors(kSize, 'e');
  // Plain comparisons: a failure must not print megabytes.
  inSurroundings([&] {
    Printed printed = run(toOutput);
    EXPECT_TRUE(printed.output == outputs && printed.error.empty());
    printed = run(toError);
    EXPECT_TRUE(printed.output.empty() && printed.error == errors);
    printed = run(toBoth);
    EXPECT_TRUE(printed.output == outputs && printed.error == errors);
    printed = run(toBoth, {}, Output::merged);
    EXPECT_TRUE(printed.output == errors + outputs && printed.error.empty());
  });
}

TEST_P(Collecting, keepsNoMoreThanSixtyFourMebibytesOfAStream) {
  constexpr std::size_t kMost = 64 << 20;
  const std::string program = tool("endless", "head -c " + std::to_string(kMost + 100'000) + " /dev/zero");
  inSurroundings([&] {
    const Printed printed = run(program);
    EXPECT_EQ(printed.status, 0) << "a tool that prints too much must not be stopped by a full pipe";
    EXPECT_EQ(printed.output.size(), kMost);
  });
}

TEST_P(Collecting, doesNotWaitForAGrandchildThatHoldsTheStreams) {
  inSurroundings([&] {
    for (const Output output : {Output::separate, Output::merged}) {
      const std::string end = gate(output == Output::separate ? "endOfFirst" : "endOfSecond");
      const std::string program =
          tool("program", "(read line < '" + end + "') &\nprintf 'output '; printf error >&2; exit 5");
      const Printed printed = run(program, {}, output);
      EXPECT_EQ(printed.status, 5);
      EXPECT_EQ(printed.output + printed.error, "output error");
      open(end);
    }
  });
}

TEST_P(Collecting, takesAllThatThePipesStillHoldAfterTheExit) {
  constexpr std::size_t kSize = 30'000;
  const std::string bulk = "head -c " + std::to_string(kSize) + " /dev/zero | tr '\\000' ";
  inSurroundings([&] {
    for (const Output output : {Output::separate, Output::merged}) {
      const std::string end = gate(output == Output::separate ? "endOfFirst" : "endOfSecond");
      const std::string program =
          tool("program", "(read line < '" + end + "') &\n" + bulk + "o; " + bulk + "e >&2; exit 5");
      ChildProcess child;
      ASSERT_EQ(child.launch(program, {}, output), 0);
      siginfo_t exited{};
      ASSERT_EQ(waitid(P_ALL, 0, &exited, WEXITED | WNOWAIT), 0);
      Printed printed;
      EXPECT_EQ(child.collectUntilExit(printed.output, printed.error), 5);
      EXPECT_TRUE(printed.output + printed.error == std::string(kSize, 'o') + std::string(kSize, 'e'));
      open(end);
    }
  });
}

TEST_P(Collecting, waitsForOutputAfterTheExitOnlyWhereItIsAskedTo) {
  const std::string proceed = gate("proceed");
  // The grandchild prints far more to standard error than the pipe holds, and then its output.
  const std::string program = tool("program", "(read line < '" + proceed +
                                                  "'; head -c 1048576 /dev/zero >&2; echo late) &\n"
                                                  "echo early; printf own >&2; exit 5");
  inSurroundings([&] {
    ChildProcess child;
    ASSERT_EQ(child.launch(program, {}, Output::separate), 0);
    Printed printed;
    EXPECT_EQ(child.collectUntilExit(printed.output, printed.error), 5);
    EXPECT_EQ(printed.output, "early\n");
    EXPECT_EQ(printed.error, "own");
    open(proceed);
    child.collectRemainingOutput(printed.output);
    EXPECT_EQ(printed.output, "early\nlate\n");
    EXPECT_EQ(printed.error, "own");
  });
}

double processorSecondsOfThisThread() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

TEST_P(Collecting, waitsIdlyForAToolThatClosesItsStreamsAndLivesOn) {
  for (const std::string closing : {">&-", "2>&-", ">&- 2>&-"}) {
    const std::string program = tool("program", "printf begun; exec " + closing + "; sleep 0.4; exit 4");
    inSurroundings([&] {
      const double before = processorSecondsOfThisThread();
      const Printed printed = run(program);
      EXPECT_LT(processorSecondsOfThisThread() - before, 0.1) << closing;
      EXPECT_EQ(printed.status, 4) << closing;
      EXPECT_EQ(printed.output, "begun") << closing;
    });
  }
}

TEST_P(Collecting, goesOnAfterASignal) {
  struct sigaction handler {};
  struct sigaction before {};
  // Without SA_RESTART: calls are interrupted.
  handler.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR2, &handler, &before), 0);
  const std::string gates[] = {gate("first"), gate("second")};
  // The signals meet the runner first while it collects and then while there is nothing left but to wait.
  const std::string program = tool("program", "printf x; read line < '" + gates[0] +
                                                  "'; exec >&- 2>&-; read line < '" + gates[1] + "'; exit 6");
  inSurroundings([&] {
    const pthread_t collector = pthread_self();
    std::thread interrupter([&] {
      for (const std::string& gate : gates) {
        std::ofstream waiting(gate);
        for (int count = 0; count < 20; ++count) {
          pthread_kill(collector, SIGUSR2);
          std::this_thread::yield();
        }
        waiting << "go" << std::endl;
      }
    });
    const Printed printed = run(program);
    interrupter.join();
    EXPECT_EQ(printed.status, 6);
    EXPECT_EQ(printed.output, "x");
  });
  sigaction(SIGUSR2, &before, nullptr);
}

}  // namespace
}  // namespace msp
