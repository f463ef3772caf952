#include "process/agent_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

#include "platform/child_system.h"
#include "platform/console.h"

namespace msp::bench {

AgentProcess::AgentProcess() {
  std::string path = "/opt/msp-agent/msp-agent";
  std::array<char*, 2> arguments = {path.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  startedAt_ = std::chrono::steady_clock::now();
  const int problem = posix_spawn(&id_, path.c_str(), &actions, nullptr, arguments.data(), environment());
  posix_spawn_file_actions_destroy(&actions);
  if (problem != 0) fatalError("cannot launch " + path);
}

AgentProcess::~AgentProcess() {
  kill(id_, SIGKILL);
  waitpid(id_, nullptr, 0);
}

}  // namespace msp::bench
