#pragma once

#include <SystemConfiguration.framework/Headers/SystemConfiguration.h>
