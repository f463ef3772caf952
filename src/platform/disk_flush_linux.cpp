#include <unistd.h>

#include "platform/disk_flush.h"

namespace msp {

int flushToDisk(int descriptor) { return fsync(descriptor); }

}  // namespace msp
