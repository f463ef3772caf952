#pragma once

#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/descriptors.h"
#include "platform/file_system.h"

/// What the files that work on files share. Safe on any thread.
namespace msp {

/// The words for an errno(3) value.
FileError fileErrorOf(int number);
FileError lastFileError();

/// A NUL would cut the path short and so name another file: nothing exists at such a path.
bool isPath(const std::string& path);

/// "directory/" of "directory/name"; "" of a bare name. "directory/name" and this with another name are
/// neighbours.
std::string directoryPrefixOf(const std::string& path);

/// Opens what exists there, if it is a regular file; never waits for the other end of a pipe. `flags` as for
/// open(2).
std::variant<Descriptor, FileError> openRegularFile(const std::string& path, int flags);

/// Hands the content of a regular file on in pieces; the first error of either side ends it.
[[nodiscard]] std::optional<FileError> readInPieces(
    const std::string& path, const std::function<std::optional<FileError>(std::string_view)>& take);

[[nodiscard]] std::optional<FileError> writeAll(const Descriptor& file, std::string_view content);

/// Closes the file. Some file systems, those on another machine for instance, tell only now that there was no
/// room for what was written.
[[nodiscard]] std::optional<FileError> closeWritten(Descriptor file);

/// Calls again for as long as signals interrupt the call.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace msp
