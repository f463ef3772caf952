#pragma once

#include <mach/error.h>

extern "C" char* mach_error_string(mach_error_t error);
