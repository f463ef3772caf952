#include "platform/temporary_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/file_calls.h"

namespace msp {

void TemporaryFile::remove() noexcept {
  if (!path_.empty()) unlink(path_.c_str());
  path_.clear();
}

std::variant<OpenTemporaryFile, FileError> createTemporaryFile(const std::string& prefix) {
  if (!isPath(prefix)) return fileErrorOf(ENOENT);
  std::string path = prefix + "XXXXXX";
  Descriptor descriptor(mkostemp(path.data(), O_CLOEXEC));
  if (!descriptor) return lastFileError();
  OpenTemporaryFile created{TemporaryFile(std::move(path)), std::move(descriptor)};
  // The umask may have taken away what the owner needs.
  if (fchmod(created.descriptor.number(), S_IRUSR | S_IWUSR) != 0) return lastFileError();
  return created;
}

}  // namespace msp
