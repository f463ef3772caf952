#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "mac/sandbox.h"

namespace msp::lab {

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::string_view, 3> kMacFolders = {"Users", "Library", "System"};

/// The system does not allow it. Never leaves this file.
struct NotAllowed {
  std::string reason;
};

[[noreturn]] void refuse(const std::string& attempt, int error) {
  throw NotAllowed{"not allowed: cannot " + attempt + ": " + std::generic_category().message(error)};
}

/// Tells a missing right from everything else, which is a broken lab or a defect.
[[noreturn]] void fail(const std::string& attempt, int error) {
  if (error == EPERM || error == EACCES) refuse(attempt, error);
  throw std::system_error(error, std::generic_category(), "cannot " + attempt);
}

void writeText(const char* file, const std::string& text) {
  const int descriptor = open(file, O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) refuse(std::string("open ") + file, errno);
  const auto written = write(descriptor, text.data(), text.size());
  const int error = errno;
  close(descriptor);
  if (written != static_cast<ssize_t>(text.size())) refuse(std::string("write ") + file, error);
}

/// Enters a new namespace; without the right to do so, as the root of a new user namespace.
void enterNamespace(int kind, const std::string& name) {
  if (unshare(kind) == 0) return;
  if (errno != EPERM) refuse("enter a " + name + " namespace", errno);

  const auto user = std::to_string(geteuid());
  const auto group = std::to_string(getegid());
  if (unshare(kind | CLONE_NEWUSER) != 0) refuse("enter a user and " + name + " namespace", errno);
  writeText("/proc/self/setgroups", "deny");  // the system's condition for mapping a group
  writeText("/proc/self/uid_map", "0 " + user + " 1");
  writeText("/proc/self/gid_map", "0 " + group + " 1");
}

void bind(const fs::path& source, const fs::path& target) {
  // Recursive: what is mounted below a folder may not be uncovered by an unprivileged user.
  if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    fail("bind " + source.string() + " to " + target.string(), errno);
  }
}

void makeFolder(const fs::path& folder) {
  if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) fail("make " + folder.string(), errno);
}

/// Lets an entry of / appear in the new root.
void bringOver(const fs::directory_entry& entry, const fs::path& root) {
  const auto target = root / entry.path().filename();
  if (entry.is_symlink()) {
    fs::create_symlink(fs::read_symlink(entry), target);
    return;
  }
  if (entry.is_directory()) {
    makeFolder(target);
  } else {
    const std::ofstream placeholder(target);
  }
  bind(entry, target);
}

bool isReplaced(const fs::path& name) {
  return name == "opt" || std::ranges::find(kMacFolders, name.native()) != kMacFolders.end();
}

/// Lets the lab's file stand in for a system file, if the lab has one.
void overlay(const fs::path& labFile, const fs::path& systemFile) {
  if (access(labFile.c_str(), F_OK) == 0) bind(labFile, systemFile);
}

void buildRoot(const fs::path& lab, const fs::path& root) {
  makeFolder(root);
  if (mount("tmpfs", root.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
    fail("mount a tmpfs", errno);
  }
  // The folder that holds the lab is bound into this file system; unbindable keeps it from being bound
  // into itself.
  if (mount(nullptr, root.c_str(), nullptr, MS_UNBINDABLE, nullptr) != 0) {
    fail("make the tmpfs unbindable", errno);
  }
  for (const auto& entry : fs::directory_iterator("/")) {
    if (!isReplaced(entry.path().filename())) bringOver(entry, root);
  }
  for (const auto folder : kMacFolders) {
    makeFolder(root / folder);
    bind(lab / folder, root / folder);
  }
  makeFolder(root / "opt");
  makeFolder(root / "opt/msp-agent");
  bind(lab / "agent", root / "opt/msp-agent");
}

void enter(const fs::path& folder) {
  const auto lab = fs::canonical(folder);
  enterNamespace(CLONE_NEWNS, "mount");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    if (errno == EINVAL)
      throw NotAllowed{"not allowed: the root directory is no mount point (a plain chroot?)"};
    refuse("make the mounts private", errno);
  }
  const auto root = lab / "root";
  buildRoot(lab, root);
  if (chroot(root.c_str()) != 0) fail("change the root directory", errno);
  if (chdir("/") != 0) fail("enter the root directory", errno);

  // The tools answer from these paths, so both must have been brought over.
  for (const auto& needed : {lab / "machine", lab / "bin/which"}) {
    if (access(needed.c_str(), F_OK) != 0) fail("see " + needed.string() + " in the sandbox", errno);
  }
  // Only now, so that a symbolic link on the way leads to a file of the new root.
  overlay(lab / "etc/hosts", "/etc/hosts");
  overlay(lab / "etc/ca-certificates.crt", "/etc/ssl/certs/ca-certificates.crt");
}

void startLoopback() {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) refuse("open a socket", errno);
  ifreq request{};
  std::strncpy(request.ifr_name, "lo", sizeof(request.ifr_name) - 1);
  bool up = ioctl(descriptor, SIOCGIFFLAGS, &request) == 0;
  if (up) {
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    up = ioctl(descriptor, SIOCSIFFLAGS, &request) == 0;
  }
  const int error = errno;
  close(descriptor);
  if (!up) refuse("start the loopback interface", error);
}

template <typename Steps>
bool attempt(const Steps& steps, std::string& whyNot) {
  try {
    steps();
    return true;
  } catch (const NotAllowed& refusal) {
    whyNot = refusal.reason;
    return false;
  }
}

}  // namespace

bool enterSandbox(const fs::path& lab, std::string& whyNot) {
  return attempt([&] { enter(lab); }, whyNot);
}

bool enterPrivateNetwork(std::string& whyNot) {
  return attempt(
      [] {
        enterNamespace(CLONE_NEWNET, "network");
        startLoopback();
      },
      whyNot);
}

}  // namespace msp::lab
