#include "support/bare_launch.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "platform/child_system.h"
#include "platform/console.h"
#include "platform/descriptors.h"

namespace msp::bench {

std::string launchBare(const Launch& launch) {
  Pipe pipe;
  if (openPipe(pipe) != 0) fatalError("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe.writingEnd.number(), STDOUT_FILENO);
  std::string path = launch.path;
  std::vector<std::string> arguments = launch.arguments;
  std::vector<char*> texts{path.data()};
  for (std::string& argument : arguments) texts.push_back(argument.data());
  texts.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawn(&child, path.c_str(), &actions, nullptr, texts.data(), environment()) != 0) {
    fatalError("cannot launch " + path);
  }
  posix_spawn_file_actions_destroy(&actions);
  pipe.writingEnd.close();

  std::string output;
  std::array<char, 4096> chunk{};
  ssize_t length = 0;
  while ((length = read(pipe.readingEnd.number(), chunk.data(), chunk.size())) > 0) {
    output.append(chunk.data(), static_cast<std::size_t>(length));
  }
  if (waitpid(child, nullptr, 0) != child) fatalError("cannot wait for " + path);
  return output;
}

void launchBare(const std::vector<Launch>& launches) {
  for (const Launch& launch : launches) static_cast<void>(launchBare(launch));
}

}  // namespace msp::bench
