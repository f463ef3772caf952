#include <stdio.h>

#include <cerrno>

#include "platform/exclusive_rename.h"

namespace msp {

int renameExclusively(const std::string& from, const std::string& to) {
  return renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0 ? 0 : errno;
}

}  // namespace msp
