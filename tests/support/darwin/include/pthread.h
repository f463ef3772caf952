#pragma once

#include_next <pthread.h>

extern "C++" int pthread_setname_np(const char* name);
