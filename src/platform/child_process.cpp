#include "platform/child_process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "platform/child_system.h"

namespace msp {

namespace {

/// How often to look after a child for which there is no exit descriptor.
constexpr int kLookIntervalMilliseconds = 50;

/// The most bytes kept of one stream: a tool that never stops printing must not take all memory.
constexpr std::size_t kMostOutput = std::size_t{64} * 1024 * 1024;

bool holdsNul(const std::string& text) { return text.find('\0') != std::string::npos; }

/// posix_spawn(3)'s settings, released at the end of the scope.
class LaunchSettings {
 public:
  LaunchSettings() = default;
  LaunchSettings(const LaunchSettings&) = delete;
  LaunchSettings& operator=(const LaunchSettings&) = delete;
  ~LaunchSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }

  int prepare(const Descriptor& input, const Descriptor& output, const Descriptor& error) {
    const sigset_t allSignals = everySignal();
    sigset_t noSignals;
    sigemptyset(&noSignals);
    short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;

    int problem = 0;
    const auto failed = [&problem](int result) { return (problem = result) != 0; };
    if (failed(posix_spawnattr_init(&attributes)) || failed(posix_spawn_file_actions_init(&actions)) ||
        failed(posix_spawnattr_setpgroup(&attributes, 0)) ||
        failed(posix_spawnattr_setsigdefault(&attributes, &allSignals)) ||
        failed(posix_spawnattr_setsigmask(&attributes, &noSignals)) ||
        failed(posix_spawn_file_actions_adddup2(&actions, input.number(), STDIN_FILENO)) ||
        failed(posix_spawn_file_actions_adddup2(&actions, output.number(), STDOUT_FILENO)) ||
        failed(posix_spawn_file_actions_adddup2(&actions, error.number(), STDERR_FILENO)) ||
        failed(handOverStandardStreamsOnly(actions, flags)) ||
        failed(posix_spawnattr_setflags(&attributes, flags))) {
      return problem;
    }
    return 0;
  }

  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};
};

/// Appends one chunk from a stream that poll(2) called readable; closes the stream at its end.
void readChunk(Descriptor& stream, std::string& text) {
  char chunk[16384];
  const ssize_t length = ::read(stream.number(), chunk, sizeof chunk);
  if (length > 0) {
    text.append(chunk, std::min(static_cast<std::size_t>(length), kMostOutput - text.size()));
  } else if (length == 0 || errno != EINTR) {
    stream.close();
  }
}

/// Appends what the stream holds at this moment, and never waits for more.
void readBuffered(Descriptor& stream, std::string& text) {
  int buffered = 0;
  if (!stream || ::ioctl(stream.number(), FIONREAD, &buffered) != 0) return;
  const std::size_t end = std::min(text.size() + static_cast<std::size_t>(buffered), kMostOutput);
  while (stream && text.size() < end) readChunk(stream, text);
}

pollfd readable(const Descriptor& descriptor) { return {descriptor.number(), POLLIN, 0}; }

}  // namespace

ChildProcess::~ChildProcess() {
  output_.close();
  error_.close();
  noteExit(0);
}

int ChildProcess::launch(std::string path, std::vector<std::string> arguments, Output output) {
  if (holdsNul(path) || std::any_of(arguments.begin(), arguments.end(), holdsNul)) return EINVAL;

  Pipe inputPipe;
  Pipe outputPipe;
  Pipe errorPipe;
  if (const int problem = openPipe(inputPipe); problem != 0) return problem;
  if (const int problem = openPipe(outputPipe); problem != 0) return problem;
  if (output == Output::separate) {
    if (const int problem = openPipe(errorPipe); problem != 0) return problem;
  }

  LaunchSettings settings;
  const Descriptor& errorEnd = output == Output::separate ? errorPipe.writingEnd : outputPipe.writingEnd;
  if (const int problem = settings.prepare(inputPipe.readingEnd, outputPipe.writingEnd, errorEnd);
      problem != 0) {
    return problem;
  }

  std::vector<char*> texts{path.data()};
  for (std::string& argument : arguments) texts.push_back(argument.data());
  texts.push_back(nullptr);
  if (const int problem = posix_spawn(&running_, path.c_str(), &settings.actions, &settings.attributes,
                                      texts.data(), environment());
      problem != 0) {
    running_ = 0;
    return problem;
  }
  output_ = std::move(outputPipe.readingEnd);
  error_ = std::move(errorPipe.readingEnd);
  return 0;
}

int ChildProcess::collectUntilExit(std::string& output, std::string& error) {
  const Descriptor exit = exitDescriptor(running_);
  bool exited = false;
  // Once both streams have ended there is nothing left to do but wait, and that takes no descriptor.
  while (!exited && (output_ || error_)) {
    std::array<pollfd, 3> watched{readable(output_), readable(error_), readable(exit)};
    if (::poll(watched.data(), watched.size(), exit ? -1 : kLookIntervalMilliseconds) < 0) continue;
    if (watched[0].revents != 0) readChunk(output_, output);
    if (watched[1].revents != 0) readChunk(error_, error);
    exited = exit ? watched[2].revents != 0 : noteExit(WNOHANG);
  }
  noteExit(0);
  readBuffered(output_, output);
  readBuffered(error_, error);
  return status_;
}

void ChildProcess::collectRemainingOutput(std::string& output) {
  std::string discarded;
  while (output_) {
    std::array<pollfd, 2> watched{readable(output_), readable(error_)};
    if (::poll(watched.data(), watched.size(), -1) < 0) continue;
    if (watched[0].revents != 0) readChunk(output_, output);
    if (watched[1].revents != 0) readChunk(error_, discarded);
    discarded.clear();
  }
}

bool ChildProcess::noteExit(int options) {
  if (running_ == 0) return true;
  int ending = 0;
  pid_t waited = 0;
  do {
    waited = ::waitpid(running_, &ending, options);
  } while (waited < 0 && errno == EINTR);
  if (waited == 0) return false;
  if (waited > 0) status_ = WIFSIGNALED(ending) ? WTERMSIG(ending) : WEXITSTATUS(ending);
  running_ = 0;
  return true;
}

}  // namespace msp
