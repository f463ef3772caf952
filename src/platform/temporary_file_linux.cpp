#include "platform/temporary_file.h"

namespace msp {

std::string temporaryDirectory() { return "/tmp"; }

}  // namespace msp
