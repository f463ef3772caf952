#pragma once

#include <string>
#include <utility>
#include <variant>

#include "platform/descriptors.h"
#include "platform/file_system.h"

namespace msp {

/// The directory for files that nobody needs for long, with or without a final slash. On a Mac it is the
/// user's own, elsewhere "/tmp". Safe on any thread.
std::string temporaryDirectory();

/// Owns a file that is removed at the end of its life. Not for two threads at once.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  TemporaryFile(TemporaryFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  TemporaryFile& operator=(TemporaryFile&& other) noexcept {
    std::swap(path_, other.path_);
    other.remove();
    return *this;
  }
  ~TemporaryFile() { remove(); }

  /// "" once there is no file to remove any more.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// The file stays, or is no longer at its path.
  void release() { path_.clear(); }

 private:
  void remove() noexcept;

  std::string path_;
};

/// A temporary file that is open for writing.
struct OpenTemporaryFile {
  // Closed first, then removed.
  TemporaryFile file;
  Descriptor descriptor;
};

/// A new empty file whose name begins with `prefix`, a path, and ends with six characters of the system's
/// choice. For its owner only, mode 0600, and inherited by no launched program. Safe on any thread.
std::variant<OpenTemporaryFile, FileError> createTemporaryFile(const std::string& prefix);

}  // namespace msp
