#pragma once

#include_next <unistd.h>

// A type of its own, so that overloading tells this call from the others.
enum class UserDirectory { temporary };
#define _CS_DARWIN_USER_TEMP_DIR (UserDirectory::temporary)
extern "C++" size_t confstr(UserDirectory name, char* value, size_t size);
