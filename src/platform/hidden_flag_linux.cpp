#include "platform/hidden_flag.h"

namespace msp {

bool isHidden(const struct stat& /*status*/) { return false; }

}  // namespace msp
