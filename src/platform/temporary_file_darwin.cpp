#include <limits.h>
#include <unistd.h>

#include <array>
#include <cstddef>

#include "platform/temporary_file.h"

namespace msp {

std::string temporaryDirectory() {
  std::array<char, PATH_MAX> path{};
  const std::size_t size = confstr(_CS_DARWIN_USER_TEMP_DIR, path.data(), path.size());
  return size == 0 || size > path.size() ? "/tmp" : path.data();
}

}  // namespace msp
