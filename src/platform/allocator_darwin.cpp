#include "platform/allocator.h"

namespace msp {

// All threads share the system's zones already.
void keepAllocatorSmall() {}

}  // namespace msp
