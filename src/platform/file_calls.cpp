#include "platform/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <optional>
#include <system_error>
#include <vector>

namespace msp {

FileError fileErrorOf(int number) { return {std::generic_category().message(number)}; }
FileError lastFileError() { return fileErrorOf(errno); }

bool isPath(const std::string& path) { return path.find('\0') == std::string::npos; }

std::string directoryPrefixOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

std::variant<Descriptor, FileError> openRegularFile(const std::string& path, int flags) {
  if (!isPath(path)) return fileErrorOf(ENOENT);
  Descriptor file(
      uninterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!file) return lastFileError();
  struct stat status {};
  if (fstat(file.number(), &status) != 0) return lastFileError();
  if (S_ISDIR(status.st_mode)) return fileErrorOf(EISDIR);
  if (!S_ISREG(status.st_mode)) return FileError{"Not a regular file"};
  return file;
}

std::optional<FileError> readInPieces(const std::string& path,
                                      const std::function<std::optional<FileError>(std::string_view)>& take) {
  const auto opened = openRegularFile(path, O_RDONLY);
  if (const auto* error = std::get_if<FileError>(&opened)) return *error;
  const int file = std::get<Descriptor>(opened).number();
  constexpr std::size_t kPiece = std::size_t{256} * 1024;
  std::vector<char> buffer(kPiece);
  while (true) {
    const ssize_t count = uninterrupted([&] { return read(file, buffer.data(), buffer.size()); });
    if (count < 0) return lastFileError();
    if (count == 0) return std::nullopt;
    if (auto error = take({buffer.data(), static_cast<std::size_t>(count)})) return error;
  }
}

std::optional<FileError> writeAll(const Descriptor& file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written =
        uninterrupted([&] { return write(file.number(), content.data(), content.size()); });
    if (written < 0) return lastFileError();
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return std::nullopt;
}

std::optional<FileError> closeWritten(Descriptor file) {
  // Not again after an interruption: the number may belong to somebody else by then.
  if (close(file.release()) != 0 && errno != EINTR) return lastFileError();
  return std::nullopt;
}

}  // namespace msp
