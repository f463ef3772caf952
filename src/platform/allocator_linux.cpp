#include <malloc.h>

#include "platform/allocator.h"

namespace msp {

void keepAllocatorSmall() {
  mallopt(M_ARENA_MAX, 1);  // NOLINT(concurrency-mt-unsafe): there are no threads yet
}

}  // namespace msp
