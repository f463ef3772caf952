#pragma once

#include <CoreFoundation.framework/Headers/CoreFoundation.h>
