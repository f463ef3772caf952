#pragma once

#include <string>

namespace msp {

/// Renames a file, unless something, be it a dangling symbolic link, exists at the new path: renamex_np(2),
/// renameat2(2). 0, or the errno(3) value: EEXIST; EXDEV between two file systems; ENOTSUP where the file
/// system or the kernel cannot. Safe on any thread.
[[nodiscard]] int renameExclusively(const std::string& from, const std::string& to);

}  // namespace msp
