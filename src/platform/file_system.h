#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Files, through POSIX. Paths are absolute or relative to the working directory. Safe on any thread.
namespace msp {

/// Why a file operation failed, as strerror(3) puts it; "Not a regular file" for a pipe or a device.
struct FileError {
  std::string description;
  bool operator==(const FileError&) const = default;
};

/// Whether something exists at the path, symbolic links followed.
bool fileExists(const std::string& path);

/// Names of the directories in a directory: hidden ones (a name that begins with "." and, on macOS, the
/// hidden flag), symbolic links and whatever cannot be looked at are left out. In no particular order.
std::variant<std::vector<std::string>, FileError> visibleDirectories(const std::string& path);

/// The whole content of a regular file. Anything else there (a directory, a pipe) is an error, never a wait.
std::variant<std::string, FileError> readFile(const std::string& path);

/// Bytes of the file at the path, or nothing when its size cannot be read.
std::optional<std::int64_t> fileSize(const std::string& path);

/// Replaces the whole file, or creates it: written beside it with mode 0600, flushed to disk, renamed over
/// it. A reader sees the old content or the new. A symbolic link is itself replaced. A failure leaves the
/// old file as it was and no stray file.
[[nodiscard]] std::optional<FileError> replaceFile(const std::string& path, std::string_view content);

/// As replaceFile, but where nothing can be created beside the file an existing one is overwritten in place
/// and flushed to disk; it keeps its permissions.
[[nodiscard]] std::optional<FileError> replaceFileOrOverwrite(const std::string& path,
                                                              std::string_view content);

/// Appends to an existing regular file, in one write as far as the system takes it whole.
[[nodiscard]] std::optional<FileError> appendToFile(const std::string& path, std::string_view content);

}  // namespace msp
