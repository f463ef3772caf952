#include "platform/process_setup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>

namespace msp {
namespace {

/// What is prepared cannot be undone, so every test prepares a process of its own and hands back what it
/// found.
bool inAProcessOfItsOwn(const std::function<bool()>& finding) {
  const pid_t child = fork();
  if (child == 0) std::_Exit(finding() ? 0 : 1);
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

TEST(PrepareProcess, raisesTheDescriptorLimit) {
  struct Case {
    std::string name;
    rlim_t soft, hard, expected;
  };
  const Case cases[] = {
      {"the soft limit rises to the hard one", 256, 300, 300},
      {"it does not rise over 10,240", 256, 20'000, 10'240},
      {"a limit over 10,240 is not lowered", 15'000, 20'000, 15'000},
      {"equal limits stay", 300, 300, 300},
  };
  rlimit now{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &now), 0);
  for (const Case& row : cases) {
    // A hard limit cannot be raised by everybody.
    if (row.hard > now.rlim_max) continue;
    EXPECT_TRUE(inAProcessOfItsOwn([&row] {
      const rlimit before{row.soft, row.hard};
      rlimit after{};
      if (setrlimit(RLIMIT_NOFILE, &before) != 0) return false;
      prepareProcess();
      return getrlimit(RLIMIT_NOFILE, &after) == 0 && after.rlim_cur == row.expected &&
             after.rlim_max == row.hard;
    })) << row.name;
  }
}

/// Whether the descriptor is open for both ways on /dev/null, for children too.
bool isNullDevice(int number) {
  char byte = 'x';
  return write(number, &byte, 1) == 1 && read(number, &byte, 1) == 0 && fcntl(number, F_GETFD) == 0;
}

TEST(PrepareProcess, opensTheStandardDescriptorsThatAreClosed) {
  EXPECT_TRUE(inAProcessOfItsOwn([] {
    for (int number = 0; number <= 2; ++number) close(number);
    prepareProcess();
    return isNullDevice(0) && isNullDevice(1) && isNullDevice(2);
  }));
}

TEST(PrepareProcess, leavesOpenStandardDescriptorsAlone) {
  EXPECT_TRUE(inAProcessOfItsOwn([] {
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) return false;
    close(STDIN_FILENO);
    prepareProcess();
    char byte = 'a';
    return isNullDevice(STDIN_FILENO) && write(STDOUT_FILENO, "b", 1) == 1 && read(ends[0], &byte, 1) == 1 &&
           byte == 'b';
  }));
}

TEST(PrepareProcess, ignoresBrokenPipesAndFullFilesAndLetsChildrenBeWaitedFor) {
  EXPECT_TRUE(inAProcessOfItsOwn([] {
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
    std::signal(SIGCHLD, SIG_IGN);
    prepareProcess();
    return std::signal(SIGPIPE, SIG_DFL) == SIG_IGN && std::signal(SIGXFSZ, SIG_DFL) == SIG_IGN &&
           std::signal(SIGCHLD, SIG_DFL) == SIG_DFL;
  }));
}

}  // namespace
}  // namespace msp
