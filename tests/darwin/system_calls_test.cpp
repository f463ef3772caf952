#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "platform/background_thread.h"
#include "platform/child_system.h"
#include "platform/descriptors.h"
#include "platform/disk_flush.h"
#include "platform/exclusive_rename.h"
#include "platform/hidden_flag.h"
#include "platform/open_socket.h"
#include "platform/wake_timer.h"
#include "support/darwin/every_failure.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

bool closesOnExec(const Descriptor& descriptor) {
  return (fcntl(descriptor.number(), F_GETFD) & FD_CLOEXEC) != 0;
}

bool becomesReadable(const Descriptor& descriptor) {
  pollfd watched{descriptor.number(), POLLIN, 0};
  return poll(&watched, 1, 60'000) == 1 && watched.revents == POLLIN;
}

bool isReadable(const Descriptor& descriptor) {
  pollfd watched{descriptor.number(), POLLIN, 0};
  return poll(&watched, 1, 0) == 1;
}

int openDescriptors() {
  int count = 0;
  for (int number = 0; number < 256; ++number) count += fcntl(number, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

TEST(PipeOfAMac, isInheritedByNoProgram) {
  Pipe pipe;
  ASSERT_EQ(openPipe(pipe), 0);
  EXPECT_TRUE(closesOnExec(pipe.readingEnd));
  EXPECT_TRUE(closesOnExec(pipe.writingEnd));
  EXPECT_EQ(write(pipe.writingEnd.number(), "a", 1), 1);
  EXPECT_TRUE(becomesReadable(pipe.readingEnd));
}

TEST(SocketOfAMac, isInheritedByNoProgram) {
  const Descriptor socket(openSocket(AF_INET, SOCK_STREAM, 0));
  ASSERT_TRUE(socket);
  EXPECT_TRUE(closesOnExec(socket));
}

TEST(SocketOfAMac, isNoneForAProtocolThatThereIsNot) {
  EXPECT_EQ(openSocket(AF_INET, -1, 0), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(WakeTimerOfAMac, becomesReadableInTimeAndNotBefore) {
  const Descriptor soon = wakeTimer(0.001);
  const Descriptor late = wakeTimer(3600);
  ASSERT_TRUE(soon && late);
  EXPECT_TRUE(closesOnExec(soon));
  EXPECT_TRUE(becomesReadable(soon));
  EXPECT_FALSE(isReadable(late));
}

TEST(WakeTimerOfAMac, mayWaitLongerThanTheKernelCounts) {
  const Descriptor never = wakeTimer(1e300);
  ASSERT_TRUE(never);
  EXPECT_FALSE(isReadable(never));
}

TEST(WakeTimerOfAMac, isNoneWhenTheSystemFails) {
  const int before = openDescriptors();
  withEveryFailure([](SimulatedMac& /*mac*/) {},
                   [](int failing) { EXPECT_EQ(static_cast<bool>(wakeTimer(1)), failing == 0); });
  EXPECT_EQ(openDescriptors(), before);
}

/// A child that waits until it is let go.
class ChildOfAMac : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(openPipe(gate_), 0);
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, gate_.readingEnd.number(), STDIN_FILENO);
    std::string path = "/bin/cat";
    char* arguments[] = {path.data(), nullptr};
    EXPECT_EQ(posix_spawn(&child, path.c_str(), &actions, nullptr, arguments, environment()), 0);
    posix_spawn_file_actions_destroy(&actions);
  }
  void TearDown() override {
    letGo();
    waitpid(child, nullptr, 0);
  }
  void letGo() { gate_.writingEnd.close(); }

  pid_t child = 0;

 private:
  Pipe gate_;
};

TEST_F(ChildOfAMac, isHeardOfWhenItExits) {
  const Descriptor exit = exitDescriptor(child);
  ASSERT_TRUE(exit);
  EXPECT_TRUE(closesOnExec(exit));
  EXPECT_FALSE(isReadable(exit));
  letGo();
  EXPECT_TRUE(becomesReadable(exit));
}

TEST_F(ChildOfAMac, isNotHeardOfWhenItIsGone) {
  letGo();
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  const int before = openDescriptors();
  EXPECT_FALSE(exitDescriptor(child));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ChildOfAMac, isNotHeardOfWhenTheSystemFails) {
  const int before = openDescriptors();
  withEveryFailure(
      [](SimulatedMac& /*mac*/) {},
      [this](int failing) { EXPECT_EQ(static_cast<bool>(exitDescriptor(child)), failing == 0); });
  EXPECT_EQ(openDescriptors(), before);
}

TEST(LaunchOnAMac, handsOverNothingThatIsNotNamed) {
  posix_spawn_file_actions_t actions{};
  short flags = POSIX_SPAWN_SETPGROUP;
  EXPECT_EQ(handOverStandardStreamsOnly(actions, flags), 0);
  EXPECT_EQ(flags, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_CLOEXEC_DEFAULT);
}

TEST(LaunchOnAMac, resetsEverySignal) {
  const sigset_t signals = everySignal();
  for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGCHLD, SIGUSR2}) {
    EXPECT_EQ(sigismember(&signals, signal), 1) << signal;
  }
}

TEST(LaunchOnAMac, handsOverTheEnvironment) { EXPECT_EQ(environment(), environ); }

TEST(BackgroundThreadOfAMac, hasItsNameAndQuality) {
  std::promise<void> done;
  ASSERT_TRUE(startBackgroundThread("agent.downloads", [&] { done.set_value(); }));
  done.get_future().wait();
  EXPECT_EQ(SimulatedMac::current().threadName, "agent.downloads");
  EXPECT_EQ(SimulatedMac::current().threadQuality, 0x11U);
}

TEST(FlushOnAMac, reachesTheDiskItselfWhereTheFileSystemCan) {
  const TemporaryDirectory directory;
  const Descriptor file(open(directory.file("a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_TRUE(file);
  EXPECT_EQ(flushToDisk(file.number()), 0);
  EXPECT_EQ(SimulatedMac::current().fullFlushes, 1);
  SimulatedMac::current().knowsFullFlush = false;
  EXPECT_EQ(flushToDisk(file.number()), 0);
  EXPECT_EQ(SimulatedMac::current().fullFlushes, 1);
}

TEST(FlushOnAMac, failsWithoutAFile) {
  EXPECT_EQ(flushToDisk(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(RenameOnAMac, neverReplaces) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("a")) << "a";
  std::ofstream(directory.file("b")) << "b";
  std::filesystem::create_symlink("nowhere", directory.file("dangling"));
  EXPECT_EQ(renameExclusively(directory.file("a"), directory.file("b")), EEXIST);
  EXPECT_EQ(renameExclusively(directory.file("a"), directory.file("dangling")), EEXIST);
  EXPECT_EQ(renameExclusively(directory.file("gone"), directory.file("c")), ENOENT);
  EXPECT_EQ(renameExclusively(directory.file("a"), directory.file("c")), 0);
  EXPECT_TRUE(std::filesystem::exists(directory.file("c")));
  EXPECT_FALSE(std::filesystem::exists(directory.file("a")));
}

TEST(HiddenFlagOfAMac, isOneOfMany) {
  struct Case {
    const char* name;
    unsigned flags;
    bool expected;
  };
  constexpr Case kCases[] = {
      {"no flag", 0, false},
      {"the flag", 0x8000, true},
      {"the flag among others", 0x8022, true},
      {"others", 0x7FFF, false},
  };
  for (const Case& row : kCases) {
    struct stat status {};
    status.st_flags = row.flags;
    EXPECT_EQ(isHidden(status), row.expected) << row.name;
  }
}

}  // namespace
}  // namespace msp::test
