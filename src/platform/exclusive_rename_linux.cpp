#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "platform/exclusive_rename.h"

namespace msp {

int renameExclusively(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  return errno == EINVAL || errno == ENOSYS ? ENOTSUP : errno;
}

}  // namespace msp
