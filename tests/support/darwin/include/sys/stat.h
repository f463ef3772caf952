#pragma once

#include_next <sys/stat.h>

#define UF_HIDDEN 0x00008000
// This system's record has no flags. Neither folders nor files have a device number, so that field is free.
#define st_flags st_rdev
