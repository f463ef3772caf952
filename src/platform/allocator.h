#pragma once

namespace msp {

/// Makes the memory allocator keep little for itself. Where it gives every new thread a heap of its own, each
/// of them would hold on to what a busy moment took; the agent's threads ask for little and share one. To be
/// called before there are threads; a system without such heaps needs nothing.
void keepAllocatorSmall();

}  // namespace msp
