#pragma once

#include <sys/types.h>

#include <cstddef>

/// What Linux says of a running process in proc(5). Each ends the benchmark when the process is not there.
namespace msp::bench {

struct Memory {
  long privateKiB = 0;   // anonymous pages
  long residentKiB = 0;  // all pages, shared ones too
};
Memory memoryOf(pid_t process);

std::size_t threadsOf(pid_t process);
std::size_t descriptorsOf(pid_t process);

/// User and system time of all its threads, ended ones too, without that of its children.
double cpuMillisecondsOf(pid_t process);

/// How often its threads, those that live now, have given up the processor to wait.
long voluntarySwitchesOf(pid_t process);

}  // namespace msp::bench
