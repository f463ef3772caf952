#include <mach-o/dyld.h>
#include <sys/syslimits.h>

#include "mac/launch_path.h"

const char* launchPath() {
  static char path[PATH_MAX];
  uint32_t size = sizeof(path);
  return _NSGetExecutablePath(path, &size) == 0 ? path : "";
}
