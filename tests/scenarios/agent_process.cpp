#include "scenarios/agent_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "lab/running_program.h"

namespace msp::test {

namespace fs = std::filesystem;

namespace {

/// inotify(7) on one directory.
class Watch {
 public:
  explicit Watch(const std::string& directory) : queue_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (queue_ < 0 || inotify_add_watch(queue_, directory.c_str(), IN_CREATE | IN_MODIFY | IN_MOVE) < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot watch " + directory);
    }
  }
  ~Watch() { close(queue_); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  bool waitForEvent(Clock::time_point deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd entry{queue_, POLLIN, 0};
    if (left <= 0 || poll(&entry, 1, static_cast<int>(left)) <= 0) return false;
    std::array<char, 4096> events{};
    while (read(queue_, events.data(), events.size()) > 0) {
    }
    return true;
  }

 private:
  int queue_;
};

// Between fork and exec of a process with threads: system calls only.

[[noreturn]] void giveUp(const char* attempt) {
  const char* const reason = strerrordesc_np(errno);
  for (const char* text : {"cannot ", attempt, ": ", reason, "\n"}) {
    if (write(STDERR_FILENO, text, std::strlen(text)) < 0) break;
  }
  _exit(126);
}

void openStream(int number, const char* file, int flags) {
  const int descriptor = open(file, flags | O_CLOEXEC, 0600);
  if (descriptor < 0 || dup2(descriptor, number) < 0) giveUp("open a standard stream");
}

void makeReadOnly(const char* directory) {
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount(directory, directory, nullptr, MS_BIND, nullptr) != 0) {
    giveUp("bind the agent's directory");
  }
  // The flags that the file system has already may be locked.
  struct statvfs facts {};
  if (statvfs(directory, &facts) != 0) giveUp("look at the agent's directory");
  unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY;
  if ((facts.f_flag & ST_NOSUID) != 0) flags |= MS_NOSUID;
  if ((facts.f_flag & ST_NODEV) != 0) flags |= MS_NODEV;
  if ((facts.f_flag & ST_NOEXEC) != 0) flags |= MS_NOEXEC;
  if (mount(nullptr, directory, nullptr, flags, nullptr) != 0) giveUp("make the agent's directory read-only");
}

struct Launch {
  pid_t parent;
  std::string output, error, hostName, readOnlyDirectory;
  std::vector<char*> command, environment;
};

[[noreturn]] void become(const Launch& launch) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != launch.parent) _exit(126);
  openStream(STDIN_FILENO, "/dev/null", O_RDONLY);
  openStream(STDOUT_FILENO, launch.output.c_str(), O_WRONLY | O_CREAT | O_APPEND);
  openStream(STDERR_FILENO, launch.error.c_str(), O_WRONLY | O_CREAT | O_APPEND);
  if (unshare(CLONE_NEWUTS) != 0 || sethostname(launch.hostName.data(), launch.hostName.size()) != 0) {
    giveUp("set the host name");
  }
  if (!launch.readOnlyDirectory.empty()) makeReadOnly(launch.readOnlyDirectory.c_str());
  // What this process got from its own parent is nothing of the agent's.
  if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) giveUp("close descriptors");
  execve(launch.command.front(), launch.command.data(), launch.environment.data());
  giveUp("run the sandbox");
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// This process's, but for the time zone: that of the simulated Macs is fixed.
std::vector<std::string> agentEnvironment() {
  std::vector<std::string> variables = {"TZ=UTC0"};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with("TZ=")) variables.emplace_back(*variable);
  }
  return variables;
}

std::size_t entries(const fs::path& directory) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory), {}));
}

/// The number behind "Name:" in a status file of proc(5); 0 without one.
std::int64_t statusNumber(const fs::path& file, const std::string& name) {
  std::ifstream lines(file);
  for (std::string word; lines >> word;) {
    std::int64_t number = 0;
    if (word == name + ":" && lines >> number) return number;
  }
  return 0;
}

}  // namespace

bool waitForChange(const std::string& directory, Clock::time_point deadline,
                   const std::function<bool()>& condition) {
  const Watch watch(directory);
  while (!condition()) {
    if (!watch.waitForEvent(deadline)) return condition();
  }
  return true;
}

AgentProcess::AgentProcess(const lab::SimulatedMac& mac, const Surroundings& surroundings) {
  std::vector<std::string> command = {lab::SimulatedMac::sandboxExecutable(), mac.folder(), "--",
                                      "/opt/msp-agent/msp-agent"};
  auto environment = agentEnvironment();
  const Launch launch{getpid(),
                      streams_.file("output"),
                      streams_.file("error"),
                      surroundings.hostName,
                      surroundings.readOnlyDirectory ? mac.agentDirectory().string() : "",
                      pointers(command),
                      pointers(environment)};
  id_ = fork();
  if (id_ < 0) throw std::system_error(errno, std::generic_category(), "cannot start the agent");
  if (id_ == 0) become(launch);
}

bool AgentProcess::runs() const {
  if (id_ == 0) return false;
  siginfo_t facts{};
  waitid(P_PID, static_cast<id_t>(id_), &facts, WEXITED | WNOHANG | WNOWAIT);
  return facts.si_pid == 0;
}

void AgentProcess::kill() {
  if (id_ == 0) return;
  ::kill(id_, SIGKILL);
  while (waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
  }
  id_ = 0;
}

std::string AgentProcess::output() const { return contentOf(streams_.file("output")); }

std::string AgentProcess::error() const { return contentOf(streams_.file("error")); }

bool AgentProcess::waitForOutput(Clock::time_point deadline, const std::function<bool()>& condition) const {
  return waitForChange(streams_.path(), deadline, condition);
}

ProcessFacts AgentProcess::facts() const {
  const fs::path process = "/proc/" + std::to_string(id_);
  ProcessFacts facts;
  facts.threads = entries(process / "task");
  for (const auto& descriptor : fs::directory_iterator(process / "fd")) {
    std::error_code closedMeanwhile;
    facts.descriptors.push_back(fs::read_symlink(descriptor, closedMeanwhile));
  }
  facts.privateKiB = statusNumber(process / "status", "RssAnon");
  for (const auto& thread : fs::directory_iterator(process / "task")) {
    facts.voluntaryContextSwitches += statusNumber(thread.path() / "status", "voluntary_ctxt_switches");
  }
  return facts;
}

std::set<pid_t> AgentProcess::zombies() const {
  std::set<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const auto name = entry.path().filename().string();
    if (!std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; })) continue;
    // "1234 (name, maybe with blanks) Z 1 ..."
    const auto facts = contentOf(entry.path() / "stat");
    const auto nameEnd = facts.rfind(") ");
    if (nameEnd == std::string::npos || facts.compare(nameEnd + 2, 1, "Z") != 0) continue;
    if (std::stoi(facts.substr(nameEnd + 4)) == id_) found.insert(std::stoi(name));
  }
  return found;
}

}  // namespace msp::test
