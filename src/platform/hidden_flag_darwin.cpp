#include "platform/hidden_flag.h"

namespace msp {

bool isHidden(const struct stat& status) { return (status.st_flags & UF_HIDDEN) != 0; }

}  // namespace msp
