#include "platform/file_move.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/exclusive_rename.h"
#include "platform/file_calls.h"

namespace msp {
namespace {

constexpr int kCannot = ENOTSUP;

/// Two numbers on a Mac, one on Linux.
bool isUnsupported(int error) { return error == ENOTSUP || error == EOPNOTSUPP; }

/// 0, or the errno(3) value; kCannot where the file system knows no way.
int giveName(TemporaryFile& file, const std::string& destination, const ExclusiveNaming& naming) {
  const int renamed = naming.rename(file.path(), destination);
  if (renamed == 0) file.release();
  if (!isUnsupported(renamed)) return renamed;
  // Like that rename, this fails when something is there. The temporary name goes with its owner.
  const int linked = naming.link(file.path(), destination);
  return linked == EPERM || linked == ENOSYS || isUnsupported(linked) ? kCannot : linked;
}

bool isTaken(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

std::optional<FileError> copyInto(Descriptor descriptor, const std::string& source) {
  const auto write = [&](std::string_view bytes) { return writeAll(descriptor, bytes); };
  if (auto error = readInPieces(source, write)) return error;
  return closeWritten(std::move(descriptor));
}

/// Under the destination's own name from the first byte on.
std::optional<FileError> copyInPlace(const TemporaryFile& file, const std::string& destination) {
  Descriptor descriptor(uninterrupted(
      [&] { return open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR); }));
  if (!descriptor) return lastFileError();
  TemporaryFile copy(destination);
  if (auto error = copyInto(std::move(descriptor), file.path())) return error;
  copy.release();
  return std::nullopt;
}

std::optional<FileError> moveCopy(const TemporaryFile& file, const std::string& destination,
                                  const ExclusiveNaming& naming) {
  if (isTaken(destination)) return fileErrorOf(EEXIST);  // before copying in vain
  auto created = createTemporaryFile(directoryPrefixOf(destination) + ".msp-agent-download.");
  if (const auto* error = std::get_if<FileError>(&created)) return *error;
  auto& [copy, descriptor] = std::get<OpenTemporaryFile>(created);
  if (auto error = copyInto(std::move(descriptor), file.path())) return error;
  const int problem = giveName(copy, destination, naming);
  if (problem == kCannot) return copyInPlace(copy, destination);
  return problem == 0 ? std::nullopt : std::optional(fileErrorOf(problem));
}

}  // namespace

ExclusiveNaming systemNaming() {
  return {renameExclusively, [](const std::string& from, const std::string& to) {
            return link(from.c_str(), to.c_str()) == 0 ? 0 : errno;
          }};
}

std::optional<FileError> moveWithoutOverwriting(TemporaryFile file, const std::string& destination,
                                                const ExclusiveNaming& naming) {
  TemporaryFile source = std::move(file);  // gone on return; a parameter may live a little longer
  if (!isPath(destination)) return fileErrorOf(EINVAL);
  const int problem = giveName(source, destination, naming);
  if (problem == 0) return std::nullopt;
  if (problem == EXDEV) return moveCopy(source, destination, naming);
  if (problem == kCannot) return copyInPlace(source, destination);
  return fileErrorOf(problem);
}

std::optional<FileError> moveWithoutOverwriting(TemporaryFile file, const std::string& destination) {
  return moveWithoutOverwriting(std::move(file), destination, systemNaming());
}

}  // namespace msp
