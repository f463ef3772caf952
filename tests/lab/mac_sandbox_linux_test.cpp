#include <arpa/inet.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>

#include "lab/running_program.h"
#include "mac/sandbox.h"
#include "mac/simulated_mac.h"
#include "support/temporary_directory.h"

namespace msp::test {
namespace {

namespace fs = std::filesystem;
using lab::SimulatedMac;

class Sandbox : public testing::Test {
 protected:
  void SetUp() override {
    const auto probe = inside("true");
    if (probe.status == lab::kSandboxNotAllowed) GTEST_SKIP() << probe.error;
  }
  /// Runs a shell script in the sandbox.
  Finished inside(const std::string& script) const { return program({"/bin/sh", "-c", script}); }
  Finished program(const std::vector<std::string>& command) const {
    std::vector<std::string> whole = {SimulatedMac::sandboxExecutable(), mac_.folder(), "--"};
    whole.insert(whole.end(), command.begin(), command.end());
    return runProgram(whole);
  }
  void putIntoLab(const std::string& name, std::string_view content) const {
    const auto file = mac_.folder() / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file) << content;
  }

  TemporaryDirectory place_;
  SimulatedMac mac_{place_.file("lab"), "intel-ventura"};
};

TEST_F(Sandbox, hasTheSimulatedMacsFolders) {
  EXPECT_EQ(inside("LC_ALL=C ls -A /Users").output, ".localized\nShared\nfrontdesk\nitadmin\ntemp-2022\n");
  EXPECT_EQ(inside("ls /Library/LaunchDaemons").output,
            "com.example.vpn.helper.plist\norg.example.backup.plist\n");
  EXPECT_EQ(inside("ls /System/Library/LaunchDaemons").output, "com.apple.smbd.plist\n");
  EXPECT_EQ(inside("cat /Library/Receipts/InstallHistory.plist").output,
            contentOf(mac_.folder() / "machine/InstallHistory.plist"));
}

TEST_F(Sandbox, hasNothingInOptButTheAgentsDirectory) {
  mac_.installAgent("/bin/readlink", "http://127.0.0.1:1/");
  EXPECT_EQ(inside("ls -A /opt").output, "msp-agent\n");
  EXPECT_EQ(inside("ls -A /opt/msp-agent").output, "default_api.txt\nmsp-agent\n");
  EXPECT_EQ(program({"/opt/msp-agent/msp-agent", "/proc/self/exe"}).output, "/opt/msp-agent/msp-agent\n");
}

TEST_F(Sandbox, startsTheProgramInTheRootDirectoryWithTheLabsHome) {
  EXPECT_EQ(inside("pwd; echo \"$HOME\"").output, "/\n" + mac_.home().string() + "\n");
}

TEST_F(Sandbox, letsTheProgramFindTheToolsThroughItsLoginShell) {
  const auto found = program({"/bin/bash", "-l", "-c", "which sw_vers && sw_vers"});
  EXPECT_EQ(found.output,
            mac_.tool("sw_vers").string() + "\n" + contentOf(mac_.folder() / "machine/sw_vers"));
  EXPECT_EQ(
      program(
          {"/System/Library/PrivateFrameworks/Apple80211.framework/Versions/Current/Resources/airport", "-I"})
          .output,
      contentOf(mac_.folder() / "machine/airport -I"));
}

TEST_F(Sandbox, keepsEveryChangeInTheLabFolder) {
  const bool hadUsers = fs::exists("/Users");
  const auto mountsBefore = contentOf("/proc/self/mountinfo");
  EXPECT_EQ(
      inside("rm -r /Users/temp-2022 && echo hello > /Users/Shared/note && echo log > /opt/msp-agent/log && "
             "mkdir /Library/New /System/New")
          .status,
      0);
  EXPECT_FALSE(fs::exists(mac_.users() / "temp-2022"));
  EXPECT_EQ(contentOf(mac_.users() / "Shared/note"), "hello\n");
  EXPECT_EQ(contentOf(mac_.agentDirectory() / "log"), "log\n");
  EXPECT_TRUE(fs::is_directory(mac_.folder() / "Library/New"));
  EXPECT_TRUE(fs::is_directory(mac_.folder() / "System/New"));
  EXPECT_EQ(fs::exists("/Users"), hadUsers);
  EXPECT_EQ(contentOf("/proc/self/mountinfo"), mountsBefore);
}

TEST_F(Sandbox, leavesOnlyAnEmptyFolderBehind) {
  EXPECT_EQ(inside("echo gone > /new-entry").status, 0);
  EXPECT_TRUE(fs::is_empty(mac_.folder() / "root"));
  EXPECT_TRUE(fs::remove(mac_.folder() / "root"));
  EXPECT_FALSE(fs::exists("/new-entry"));
}

TEST_F(Sandbox, isNotFoundAgainInsideItself) {
  EXPECT_EQ(inside("ls -A '" + (mac_.folder() / "root").string() + "'").output, "");
}

TEST_F(Sandbox, keepsTheRestOfTheMachineAtItsPlaces) {
  putIntoLab("note", "seen at the same path\n");
  EXPECT_EQ(inside("cat '" + (mac_.folder() / "note").string() + "'").output, "seen at the same path\n");
  EXPECT_EQ(inside("cat /etc/passwd").output, contentOf("/etc/passwd"));
  EXPECT_EQ(inside("echo text > /dev/null && test -d /proc/$$ && readlink /bin || echo no link").status, 0);
}

TEST_F(Sandbox, showsTheLabsHostNamesAndCertificates) {
  const auto hosts = contentOf("/etc/hosts"), certificates = contentOf("/etc/ssl/certs/ca-certificates.crt");
  EXPECT_EQ(inside("cat /etc/hosts").output, hosts) << "without a file of the lab";

  putIntoLab("etc/hosts", "127.0.0.1 localhost service.example\n");
  putIntoLab("etc/ca-certificates.crt", "a certificate\n");
  EXPECT_EQ(inside("cat /etc/hosts").output, "127.0.0.1 localhost service.example\n");
  EXPECT_EQ(inside("cat /etc/ssl/certs/ca-certificates.crt").output, "a certificate\n");
  EXPECT_EQ(contentOf("/etc/hosts"), hosts);
  EXPECT_EQ(contentOf("/etc/ssl/certs/ca-certificates.crt"), certificates);
}

TEST_F(Sandbox, passesTheProgramsArgumentsAndExitStatusOn) {
  EXPECT_EQ(program({"/bin/echo", "two  blanks", "", "--"}).output, "two  blanks  --\n");
  EXPECT_EQ(inside("exit 3").status, 3);
  EXPECT_EQ(inside("kill -TERM $$").status, 128 + SIGTERM);
}

TEST_F(Sandbox, tellsABrokenLabFromASystemThatDoesNotAllowIt) {
  const auto absent = program({"/nowhere/program"});
  EXPECT_EQ(absent.error, "mac-sandbox: cannot run /nowhere/program: No such file or directory\n");
  EXPECT_EQ(absent.status, lab::kSandboxFailed);

  fs::rename(mac_.folder() / "machine", mac_.folder() / "elsewhere");
  const auto broken = inside("true");
  EXPECT_EQ(broken.error, "mac-sandbox: cannot see " + (mac_.folder() / "machine").string() +
                              " in the sandbox: No such file or directory\n");
  EXPECT_EQ(broken.status, lab::kSandboxFailed);

  fs::remove_all(mac_.folder());
  EXPECT_EQ(inside("true").status, lab::kSandboxFailed);
}

TEST_F(Sandbox, isRefusedWithAReasonInAPlainChroot) {
  // A chroot into a folder of some file system, as a build environment may be one. The sandbox's own root
  // serves to make it; its /opt cannot be bound once more.
  const auto folder = (mac_.folder() / "plain").string();
  const auto script =
      "mkdir '" + folder + "' && mount -t tmpfs tmpfs '" + folder + "' && cd '" + folder +
      "' && mkdir jail && cd jail && for entry in /*; do "
      "if [ -L $entry ]; then cp -P $entry .; "
      "elif [ -d $entry ] && [ $entry != /opt ]; then mkdir .$entry && mount --rbind $entry .$entry; "
      "fi; done && exec chroot . '" +
      SimulatedMac::sandboxExecutable().string() + "' '" + mac_.folder().string() + "' -- /bin/true";
  const auto finished = inside(script);
  EXPECT_EQ(finished.error,
            "mac-sandbox: not allowed: the root directory is no mount point (a plain chroot?)\n");
  EXPECT_EQ(finished.status, lab::kSandboxNotAllowed);
}

/// Runs the steps in a process of their own, forked from here; gives what they return, their complaint.
std::string inChild(const std::function<std::string()>& steps) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    const auto complaint = steps();
    const auto written = write(ends[1], complaint.data(), complaint.size());
    _exit(written == static_cast<ssize_t>(complaint.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string complaint;
  char buffer[512];
  for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof(buffer))) > 0;) {
    complaint.append(buffer, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0 ? complaint : complaint + " (the child failed)";
}

std::string becomeNobody() {
  constexpr uid_t kNobody = 65534;
  if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)
    return "cannot become nobody";
  // As after an exec: without it the process could not write its own id maps.
  return prctl(PR_SET_DUMPABLE, 1) == 0 ? "" : "cannot become dumpable";
}

TEST_F(Sandbox, needsNoRootRights) {
  if (geteuid() != 0) GTEST_SKIP() << "not root: every other test here shows it";
  constexpr auto kAll = fs::perms::owner_all | fs::perms::group_all | fs::perms::others_all;
  fs::permissions(place_.path(), kAll);
  fs::permissions(mac_.folder(), kAll);
  fs::permissions(mac_.users(), kAll);
  const auto complaint = inChild([this]() -> std::string {
    if (auto problem = becomeNobody(); !problem.empty()) return problem;
    std::string whyNot;
    if (!lab::enterSandbox(mac_.folder(), whyNot)) return whyNot;
    if (geteuid() != 0) return "not root inside";
    std::ofstream("/Users/written") << "by nobody";
    return "";
  });
  if (complaint.starts_with("not allowed: ")) GTEST_SKIP() << complaint;
  EXPECT_EQ(complaint, "");
  EXPECT_EQ(contentOf(mac_.users() / "written"), "by nobody");
}

std::string connectTo(const char* address, std::uint16_t port) {
  sockaddr_in where{};
  where.sin_family = AF_INET;
  where.sin_port = htons(port);
  inet_pton(AF_INET, address, &where.sin_addr);
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int result = connect(descriptor, reinterpret_cast<const sockaddr*>(&where), sizeof(where));
  const int error = errno;
  close(descriptor);
  return result == 0 ? "connected" : std::generic_category().message(error);
}

std::string listenOn443() {
  sockaddr_in where{};
  where.sin_family = AF_INET;
  where.sin_port = htons(443);
  where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&where), sizeof(where)) != 0) return "cannot bind";
  return listen(descriptor, 1) == 0 ? "" : "cannot listen";
}

/// What everybody in a private network finds, and whether a sandbox can be entered there.
std::string tryPrivateNetwork(const SimulatedMac& mac) {
  std::string whyNot;
  if (!lab::enterPrivateNetwork(whyNot)) return whyNot;
  if (auto problem = listenOn443(); !problem.empty()) return problem;
  if (connectTo("127.0.0.1", 443) != "connected") return "cannot reach 127.0.0.1:443";
  if (auto outcome = connectTo("192.0.2.1", 80); outcome != "Network is unreachable") return outcome;
  const auto sandboxed = runProgram({SimulatedMac::sandboxExecutable(), mac.folder(), "--", "/bin/sh", "-c",
                                     "ls /Users && cat /proc/net/dev"});
  if (sandboxed.status != 0) return "no sandbox in the private network: " + sandboxed.error;
  if (sandboxed.output.find("itadmin\n") == std::string::npos) return "no /Users in the private network";
  if (sandboxed.output.find("eth") != std::string::npos) return "more than a loopback interface";
  return "";
}

TEST_F(Sandbox, canBeEnteredInAPrivateNetwork) {
  const auto complaint = inChild([this] { return tryPrivateNetwork(mac_); });
  if (complaint.starts_with("not allowed: ")) GTEST_SKIP() << complaint;
  EXPECT_EQ(complaint, "");
}

TEST_F(Sandbox, canBeEnteredInAPrivateNetworkWithoutRootRights) {
  if (geteuid() != 0) GTEST_SKIP() << "not root: the test before this one shows it";
  constexpr auto kAll = fs::perms::owner_all | fs::perms::group_all | fs::perms::others_all;
  fs::permissions(place_.path(), kAll);
  fs::permissions(mac_.folder(), kAll);
  const auto complaint = inChild([this]() -> std::string {
    if (auto problem = becomeNobody(); !problem.empty()) return problem;
    return tryPrivateNetwork(mac_);
  });
  if (complaint.starts_with("not allowed: ")) GTEST_SKIP() << complaint;
  EXPECT_EQ(complaint, "");
}

}  // namespace
}  // namespace msp::test
