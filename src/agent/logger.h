#pragma once

#include <optional>
#include <string>

#include "platform/mutex.h"

namespace msp {

/// The event log: `logfile.log` in the agent's directory, one line per event, cut to its newer half when it
/// grows past ten thousand bytes.
///
/// Never fails towards the caller: what cannot be written is dropped. A message is on disk when log()
/// returns. Safe on any thread; one process-wide instance, so that lines neither mix nor get lost in a trim.
class Logger {
 public:
  /// The directory of the agent's executable.
  explicit Logger(std::string directory) : directory_(std::move(directory)) {}

  /// Appends "yy-MM-dd HH:mm:ss", a tab, the message as it is given and a line feed.
  void log(const std::string& message);

  /// Keeps the newer half of the lines when the file holds 10,000 bytes or more.
  void trimLog();

  /// Where the log is; nothing when the agent's directory does not exist.
  [[nodiscard]] std::optional<std::string> logFileURL() const;

 private:
  /// Whether the file was created, in which case it needs no look at its size.
  bool append(const std::string& path, const std::string& message) MSP_REQUIRES(mutex_);
  void trim() MSP_REQUIRES(mutex_);

  const std::string directory_;
  Mutex mutex_;  // guards the file, across append, size check and trim
};

}  // namespace msp
