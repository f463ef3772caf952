#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/descriptors.h"

namespace msp {

/// A program started by this process, and what it prints.
///
/// It leads a process group of its own, inherits environment and working directory, has default signal
/// dispositions and an empty signal mask, reads an input that is already at its end, and gets no descriptor
/// but the three standard ones. Descriptors 0, 1 and 2 of this process must be open (see prepareProcess).
/// Any number of threads may launch at the same moment; one object is not for two threads at once.
class ChildProcess {
 public:
  enum class Output {
    separate,  ///< a pipe each for standard output and standard error
    merged,    ///< one pipe, which counts as standard output
  };

  ChildProcess() = default;
  /// Closes the pipes and waits for the exit: a child is never left behind as a zombie.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Starts the program at `path`, once per object. 0, or the errno(3) value of a refused launch: among
  /// others EMFILE without descriptors, EAGAIN without processes, E2BIG for arguments that are too long,
  /// EINVAL for text that holds a NUL character.
  [[nodiscard]] int launch(std::string path, std::vector<std::string> arguments, Output output);

  /// Appends, up to 64 MiB a stream, what a launched child prints until it exits, and what the pipes still
  /// hold then; whoever else keeps a pipe open is not waited for. The exit status, or the signal's number for
  /// a child that was killed.
  int collectUntilExit(std::string& output, std::string& error);

  /// After the exit: appends what others still print to standard output, up to its end. What they print to
  /// standard error meanwhile is thrown away, so that a full pipe never stops them.
  void collectRemainingOutput(std::string& output);

 private:
  /// Takes note of the exit with waitpid(2); false while the child runs on (with WNOHANG in `options`).
  bool noteExit(int options);

  pid_t running_ = 0;
  int status_ = 0;
  Descriptor output_;
  Descriptor error_;
};

}  // namespace msp
