#pragma once

#include_next <fcntl.h>

// A type of its own, so that overloading tells this call from the others.
enum class FullFlush { command };
#define F_FULLFSYNC (FullFlush::command)
extern "C++" int fcntl(int descriptor, FullFlush command);
