#include <fcntl.h>
#include <unistd.h>

#include "platform/disk_flush.h"

namespace msp {

// fsync(2) hands the data to the drive only, which may keep it in its cache; not every file system knows the
// stronger call.
int flushToDisk(int descriptor) { return fcntl(descriptor, F_FULLFSYNC) == 0 ? 0 : fsync(descriptor); }

}  // namespace msp
