#include <sys/auxv.h>

#include "mac/launch_path.h"

const char* launchPath() {
  const auto address = getauxval(AT_EXECFN);
  return address == 0 ? "" : reinterpret_cast<const char*>(address);  // NOLINT(performance-no-int-to-ptr)
}
