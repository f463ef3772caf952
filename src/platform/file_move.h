#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/file_system.h"
#include "platform/temporary_file.h"

namespace msp {

/// Moves a temporary file to the destination, where nothing may exist, not even a dangling symbolic link;
/// also when somebody creates it meanwhile, it is never overwritten. From another file system the file is
/// copied, which takes its time, to a temporary name beside the destination first: the destination appears
/// whole or not at all. A failure leaves neither the temporary file nor a part of its copy behind.
///
/// On file systems without an exclusive rename a second link takes its place; those that have no links either
/// refuse the move. Safe on any thread.
[[nodiscard]] std::optional<FileError> moveWithoutOverwriting(TemporaryFile file,
                                                              const std::string& destination);

/// How a file gets another name, as rename(2) puts it: 0, or the errno(3) value.
using ExclusiveRename = std::function<int(const std::string& from, const std::string& to)>;

/// The same by another rename: tests answer in the file system's place.
[[nodiscard]] std::optional<FileError> moveWithoutOverwriting(TemporaryFile file,
                                                              const std::string& destination,
                                                              const ExclusiveRename& rename);

}  // namespace msp
