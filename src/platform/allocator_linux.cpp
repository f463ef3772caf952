#include <malloc.h>

#include "platform/allocator.h"

namespace msp {

void keepAllocatorSmall() { mallopt(M_ARENA_MAX, 1); }

}  // namespace msp
