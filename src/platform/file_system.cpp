#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <utility>

#include "platform/descriptors.h"
#include "platform/disk_flush.h"
#include "platform/file_calls.h"
#include "platform/hidden_flag.h"
#include "platform/temporary_file.h"

namespace msp {
namespace {

std::optional<FileError> flush(const Descriptor& file) {
  if (uninterrupted([&] { return flushToDisk(file.number()); }) != 0) return lastFileError();
  return std::nullopt;
}

/// Makes a rename in the path's directory last. Not every file system can, and the file is whole anyway.
void flushDirectoryOf(const std::string& path) {
  const std::string directory = directoryPrefixOf(path);
  const Descriptor opened(
      open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened) fsync(opened.number());
}

/// A failure leaves no stray file: the temporary one goes with its owner.
std::optional<FileError> fillAndRename(OpenTemporaryFile temporary, std::string_view content,
                                       const std::string& path) {
  if (auto error = writeAll(temporary.descriptor, content)) return error;
  if (auto error = flush(temporary.descriptor)) return error;
  if (std::rename(temporary.file.path().c_str(), path.c_str()) != 0) return lastFileError();
  temporary.file.release();
  flushDirectoryOf(path);
  return std::nullopt;
}

/// A new empty file beside the other, for its owner only.
std::variant<OpenTemporaryFile, FileError> createBeside(const std::string& path) {
  return createTemporaryFile(path + ".");
}

std::optional<FileError> overwrite(const Descriptor& file, std::string_view content) {
  // Cut last, so that a disk too full for the first byte leaves the old content.
  if (auto error = writeAll(file, content)) return error;
  const auto size = static_cast<off_t>(content.size());
  if (uninterrupted([&] { return ftruncate(file.number(), size); }) != 0) return lastFileError();
  return flush(file);
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat status {};
  return isPath(path) && stat(path.c_str(), &status) == 0;
}

std::variant<std::vector<std::string>, FileError> visibleDirectories(const std::string& path) {
  if (!isPath(path)) return fileErrorOf(ENOENT);
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
  if (!directory) return lastFileError();
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
  if (errno != 0) return lastFileError();
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
    if (count < 0) return lastFileError();
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
  auto created = createBeside(path);
  if (const auto* error = std::get_if<FileError>(&created)) return *error;
  return fillAndRename(std::get<OpenTemporaryFile>(std::move(created)), content, path);
}

std::optional<FileError> replaceFileOrOverwrite(const std::string& path, std::string_view content) {
  auto created = createBeside(path);
  if (auto* temporary = std::get_if<OpenTemporaryFile>(&created)) {
    return fillAndRename(std::move(*temporary), content, path);
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
