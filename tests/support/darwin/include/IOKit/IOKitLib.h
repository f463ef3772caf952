#pragma once

#include <IOKit.framework/Headers/IOKitLib.h>
