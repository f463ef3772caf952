#include "platform/file_move.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/exclusive_rename.h"
#include "platform/file_calls.h"

namespace msp {
namespace {

/// 0, or the errno(3) value.
int giveName(TemporaryFile& file, const std::string& destination, const ExclusiveRename& rename) {
  const int problem = rename(file.path(), destination);
  if (problem == 0) file.release();
  if (problem != ENOTSUP) return problem;
  // Like that rename, this fails when something is there. The temporary name goes with its owner.
  return link(file.path().c_str(), destination.c_str()) == 0 ? 0 : errno;
}

bool isTaken(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

std::optional<FileError> moveCopy(const TemporaryFile& file, const std::string& destination,
                                  const ExclusiveRename& rename) {
  if (isTaken(destination)) return fileErrorOf(EEXIST);  // before copying in vain
  auto created = createTemporaryFile(directoryPrefixOf(destination) + ".msp-agent-download.");
  if (const auto* error = std::get_if<FileError>(&created)) return *error;
  auto& [copy, descriptor] = std::get<OpenTemporaryFile>(created);
  const auto write = [&open = descriptor](std::string_view bytes) { return writeAll(open, bytes); };
  if (auto error = readInPieces(file.path(), write)) return error;
  if (auto error = closeWritten(std::move(descriptor))) return error;
  const int problem = giveName(copy, destination, rename);
  return problem == 0 ? std::nullopt : std::optional(fileErrorOf(problem));
}

}  // namespace

std::optional<FileError> moveWithoutOverwriting(TemporaryFile file, const std::string& destination,
                                                const ExclusiveRename& rename) {
  TemporaryFile source = std::move(file);  // gone on return; a parameter may live a little longer
  if (!isPath(destination)) return fileErrorOf(EINVAL);
  const int problem = giveName(source, destination, rename);
  if (problem == 0) return std::nullopt;
  if (problem == EXDEV) return moveCopy(source, destination, rename);
  return fileErrorOf(problem);
}

std::optional<FileError> moveWithoutOverwriting(TemporaryFile file, const std::string& destination) {
  return moveWithoutOverwriting(std::move(file), destination, renameExclusively);
}

}  // namespace msp
