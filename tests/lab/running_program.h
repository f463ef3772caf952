#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "support/temporary_directory.h"

// The system's headers need not declare it, and not all of them do.
extern "C" char** environ;  // NOLINT(readability-redundant-declaration)

namespace msp::test {

inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// What a program left behind. The status is its exit status, or 128 and the signal that killed it.
struct Finished {
  std::string output;
  std::string error;
  int status = 0;
};

/// A program started by its absolute path, with this process's environment or one given as NAME=value.
class RunningProgram {
 public:
  explicit RunningProgram(std::vector<std::string> command) : RunningProgram(std::move(command), environ) {}
  RunningProgram(std::vector<std::string> command, std::vector<std::string> environment)
      : RunningProgram(std::move(command), pointers(environment).data()) {}
  ~RunningProgram() {
    if (id_ > 0) {
      kill(id_, SIGKILL);
      waitpid(id_, nullptr, 0);
    }
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;
  RunningProgram(RunningProgram&&) = delete;
  RunningProgram& operator=(RunningProgram&&) = delete;

  [[nodiscard]] pid_t id() const { return id_; }
  /// Whether it has not exited yet.
  [[nodiscard]] bool runs() const {
    siginfo_t facts{};
    waitid(P_PID, static_cast<id_t>(id_), &facts, WEXITED | WNOHANG | WNOWAIT);
    return facts.si_pid == 0;
  }
  /// Waits for its end; once only.
  Finished wait() {
    int status = 0;
    while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
    }
    id_ = 0;
    return {contentOf(streams_.file("output")), contentOf(streams_.file("error")),
            WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
  }

 private:
  RunningProgram(std::vector<std::string> command, char** environment) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kCreate = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, 1, streams_.file("output").c_str(), kCreate, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, streams_.file("error").c_str(), kCreate, 0600);
    const int problem =
        posix_spawn(&id_, command.front().c_str(), &actions, nullptr, pointers(command).data(), environment);
    posix_spawn_file_actions_destroy(&actions);
    if (problem != 0) throw std::system_error(problem, std::generic_category(), command.front());
  }

  static std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
  }

  TemporaryDirectory streams_;
  pid_t id_ = 0;
};

inline Finished runProgram(std::vector<std::string> command) {
  return RunningProgram(std::move(command)).wait();
}

}  // namespace msp::test
