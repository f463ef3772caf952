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
/// On file systems without an exclusive rename a second link takes its place; on those that have no links
/// either (exFAT) the content is copied to the destination itself, which can be seen growing there. Safe on
/// any thread.
[[nodiscard]] std::optional<FileError> moveWithoutOverwriting(TemporaryFile file,
                                                              const std::string& destination);

/// How a file gets another name that nothing may have: each gives 0, or the errno(3) value.
struct ExclusiveNaming {
  using Call = std::function<int(const std::string& from, const std::string& to)>;
  Call rename;
  Call link;
};
ExclusiveNaming systemNaming();

/// The same with other calls: tests answer in the file system's place.
[[nodiscard]] std::optional<FileError> moveWithoutOverwriting(TemporaryFile file,
                                                              const std::string& destination,
                                                              const ExclusiveNaming& naming);

}  // namespace msp
