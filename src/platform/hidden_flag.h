#pragma once

#include <sys/stat.h>

namespace msp {

/// Whether the entry carries the flag that hides it from users, where the system has one (chflags(1)).
bool isHidden(const struct stat& status);

}  // namespace msp
