#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <utility>

#include "platform/descriptors.h"
#include "platform/disk_flush.h"
#include "platform/hidden_flag.h"

namespace msp {
namespace {

FileError errorOf(int number) { return {std::generic_category().message(number)}; }
FileError lastError() { return errorOf(errno); }

/// A NUL would cut the path short and so name another file: nothing exists at such a path.
bool isPath(const std::string& path) { return path.find('\0') == std::string::npos; }

/// Calls again for as long as signals interrupt the call.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// Opens what exists there, if it is a regular file; never waits for the other end of a pipe.
std::variant<Descriptor, FileError> openRegularFile(const std::string& path, int flags) {
  if (!isPath(path)) return errorOf(ENOENT);
  Descriptor file(
      uninterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!file) return lastError();
  struct stat status {};
  if (fstat(file.number(), &status) != 0) return lastError();
  if (S_ISDIR(status.st_mode)) return errorOf(EISDIR);
  if (!S_ISREG(status.st_mode)) return FileError{"Not a regular file"};
  return file;
}

std::optional<FileError> writeAll(const Descriptor& file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written =
        uninterrupted([&] { return write(file.number(), content.data(), content.size()); });
    if (written < 0) return lastError();
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return std::nullopt;
}

std::optional<FileError> flush(const Descriptor& file) {
  if (uninterrupted([&] { return flushToDisk(file.number()); }) != 0) return lastError();
  return std::nullopt;
}

/// Makes a rename in the path's directory last. Not every file system can, and the file is whole anyway.
void flushDirectoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened) fsync(opened.number());
}

struct TemporaryFile {
  Descriptor file;
  std::string path;
};

/// A new empty file beside the other, for its owner only.
std::variant<TemporaryFile, FileError> createBeside(const std::string& path) {
  if (!isPath(path)) return errorOf(ENOENT);
  std::string temporaryPath = path + ".XXXXXX";
  Descriptor file(mkostemp(temporaryPath.data(), O_CLOEXEC));
  if (!file) return lastError();
  return TemporaryFile{std::move(file), std::move(temporaryPath)};
}

std::optional<FileError> fillAndRename(const TemporaryFile& temporary, std::string_view content,
                                       const std::string& path) {
  // The umask may have taken away what the owner needs.
  if (fchmod(temporary.file.number(), S_IRUSR | S_IWUSR) != 0) return lastError();
  if (auto error = writeAll(temporary.file, content)) return error;
  if (auto error = flush(temporary.file)) return error;
  if (std::rename(temporary.path.c_str(), path.c_str()) != 0) return lastError();
  flushDirectoryOf(path);
  return std::nullopt;
}

std::optional<FileError> replaceBy(const TemporaryFile& temporary, std::string_view content,
                                   const std::string& path) {
  auto error = fillAndRename(temporary, content, path);
  if (error) unlink(temporary.path.c_str());
  return error;
}

std::optional<FileError> overwrite(const Descriptor& file, std::string_view content) {
  // Cut last, so that a disk too full for the first byte leaves the old content.
  if (auto error = writeAll(file, content)) return error;
  const auto size = static_cast<off_t>(content.size());
  if (uninterrupted([&] { return ftruncate(file.number(), size); }) != 0) return lastError();
  return flush(file);
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat status {};
  return isPath(path) && stat(path.c_str(), &status) == 0;
}

std::variant<std::vector<std::string>, FileError> visibleDirectories(const std::string& path) {
  if (!isPath(path)) return errorOf(ENOENT);
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
  if (!directory) return lastError();
  std::vector<std::string> names;
  while (true) {
    errno = 0;
    const dirent* const entry =
        readdir(directory.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry == nullptr) break;
    struct stat status {};
    if (entry->d_name[0] == '.' ||
        fstatat(dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(status.st_mode) || isHidden(status)) {
      continue;
    }
    names.emplace_back(entry->d_name);
  }
  if (errno != 0) return lastError();
  return names;
}

std::variant<std::string, FileError> readFile(const std::string& path) {
  const auto opened = openRegularFile(path, O_RDONLY);
  if (const auto* error = std::get_if<FileError>(&opened)) return *error;
  const int file = std::get<Descriptor>(opened).number();

  constexpr std::size_t kFirstRead = 16384;
  std::string content;
  std::size_t used = 0;
  while (true) {
    if (used == content.size()) content.resize(std::max(kFirstRead, 2 * used));
    const ssize_t count =
        uninterrupted([&] { return read(file, content.data() + used, content.size() - used); });
    if (count < 0) return lastError();
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  content.resize(used);
  return content;
}

std::optional<std::int64_t> fileSize(const std::string& path) {
  struct stat status {};
  if (!isPath(path) || stat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_size;
}

std::optional<FileError> replaceFile(const std::string& path, std::string_view content) {
  const auto created = createBeside(path);
  if (const auto* error = std::get_if<FileError>(&created)) return *error;
  return replaceBy(std::get<TemporaryFile>(created), content, path);
}

std::optional<FileError> replaceFileOrOverwrite(const std::string& path, std::string_view content) {
  const auto created = createBeside(path);
  if (const auto* temporary = std::get_if<TemporaryFile>(&created)) {
    return replaceBy(*temporary, content, path);
  }
  const auto existing = openRegularFile(path, O_WRONLY);
  if (const auto* file = std::get_if<Descriptor>(&existing)) return overwrite(*file, content);
  return std::get<FileError>(created);
}

std::optional<FileError> appendToFile(const std::string& path, std::string_view content) {
  const auto opened = openRegularFile(path, O_WRONLY | O_APPEND);
  if (const auto* error = std::get_if<FileError>(&opened)) return *error;
  return writeAll(std::get<Descriptor>(opened), content);
}

}  // namespace msp
